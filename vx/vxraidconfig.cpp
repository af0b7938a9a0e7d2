#include "vx/vxraid.h"
#include "vx/vxraid_p.h"

#include "gx2/gx2brolt.h"
#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"

#include <QFile>
#include <QJsonObject>

namespace {

const char kSpeedMaxFile[] = "/proc/sys/dev/raid/speed_limit_max";
const char kSpeedMinFile[] = "/proc/sys/dev/raid/speed_limit_min";
constexpr int kDefaultSpeedMax = 200000;
constexpr int kDefaultSpeedMin = 1000;

int readLimit(const char* file, int fallback)
{
    const int value = GX2File::readAll(sysPath(QString::fromLatin1(file))).trimmed().toInt();
    return value < 1 ? fallback : value;
}

// Unbuffered, so that the kernel's refusal shows in write() itself.
bool writeLimit(const char* file, int value)
{
    QFile out(sysPath(QString::fromLatin1(file)));
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        return false;
    const QByteArray text = QByteArray::number(value);
    return out.write(text) == text.size();
}

} // namespace

void VXRaidPrivate::writeConfig()
{
    // The daemon's slot is "raid_writeconfig"; this notice name is kept as
    // the clients have always sent it.
    broltNotice(QJsonObject{{QStringLiteral("cmd"), QStringLiteral("raid_writeConfig")}});
}

bool VXRaid::waitForWriteConfig(int msecs)
{
    QJsonObject result;
    const QJsonObject request{
        {QStringLiteral("cmd"), QStringLiteral("raid_writeconfig_waitfor")},
        {QStringLiteral("params"), QJsonObject{{QStringLiteral("timeout"), msecs}}}};
    return broltRequest(result, request, msecs) == 0;
}

void VXRaid::limitSpeeds(int& max, int& min)
{
    max = readLimit(kSpeedMaxFile, kDefaultSpeedMax);
    min = readLimit(kSpeedMinFile, kDefaultSpeedMin);
}

bool VXRaid::setLimitSpeeds(int max, int min)
{
    if (!writeLimit(kSpeedMaxFile, max < 1 ? kDefaultSpeedMax : max))
        return false;
    return writeLimit(kSpeedMinFile, min < 1 ? kDefaultSpeedMin : min);
}
