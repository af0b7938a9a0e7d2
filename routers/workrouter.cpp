#include "routers/workrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "lnx2/lnx2process.h"

#include <QDateTime>
#include <QDir>

#include <fcntl.h>
#include <unistd.h>

namespace {

// Removing one small file; a stuck rm must not hold the event loop for long.
constexpr int kRmStartMs = 5000;
constexpr int kRmFinishMs = 5000;

// How PHP's session serialiser stores the user name: username|s:5:"alice".
QString userNeedle(const QString& uid)
{
    return QStringLiteral("username|s:") + QString::number(uid.size()) + QStringLiteral(":\"") +
           uid + QLatin1Char('"');
}

// Split at ";" so the name matches wherever it sits among the session's fields.
bool holdsNeedle(const QByteArray& content, const QString& needle)
{
    return QString::fromUtf8(content).split(QLatin1Char(';'), Qt::SkipEmptyParts).contains(needle);
}

// Deletes the sessions holding needle, except the one named spared; returns the count.
int kickSessions(const QString& needle, const QString& spared)
{
    const QDir dir(sysPath(QStringLiteral("/var/lib/php/sessions")));
    const QStringList names =
        dir.entryList({QStringLiteral("sess_*")}, QDir::Files | QDir::CaseSensitive, QDir::Name);
    int affected = 0;
    for (const QString& name : names) {
        if (name == spared)
            continue;
        const QString path = dir.absoluteFilePath(name);
        if (!holdsNeedle(GX2File::readAll(path), needle))
            continue;
        procRun(QStringLiteral("rm"), {QStringLiteral("-f"), path}, kRmStartMs, kRmFinishMs);
        ++affected;
    }
    return affected;
}

} // namespace

WorkRouter::WorkRouter(QObject* parent) : GX2TodoRouter(parent) {}

void WorkRouter::power_setbootime(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const QDateTime bootime = toDateTime(cmdObject.param(QStringLiteral("bootime")));
    const QDateTime now = QDateTime::currentDateTime();
    if (!bootime.isValid() || now >= bootime) {
        retObject->setErr(kErrBadParam);
        return;
    }
    // Deliberately bootime.secsTo(now), a negative count of seconds, and not an
    // epoch time: this exact value is the appliance's established behaviour.
    const qint64 secs = bootime.secsTo(now);
    GX2File::saveBinary(QByteArray::number(secs),
                        sysPath(QStringLiteral("/sys/class/rtc/rtc0/wakealarm")));
    retObject->setErr(kErrOk);
}

void WorkRouter::power_sleeping(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    // Suspends to disk before the answer leaves; the write's result is moot.
    GX2File::saveBinary(QByteArrayLiteral("disk"), sysPath(QStringLiteral("/sys/power/state")));
    retObject->setErr(kErrOk);
}

void WorkRouter::system_working(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    retObject->setErr(kErrOk);
}

void WorkRouter::user_kick(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const QString uid = toString(cmdObject.param(QStringLiteral("uid"))).trimmed();
    if (uid.isEmpty()) {
        retObject->setErr(kErrBadParam);
        return;
    }
    const QString ignore = toString(cmdObject.param(QStringLiteral("ignore")));
    const QString spared = ignore.isEmpty() ? QString() : QStringLiteral("sess_") + ignore;
    const int affected = kickSessions(userNeedle(uid), spared);
    retObject->setResults({{QStringLiteral("affected"), affected}});
}

void WorkRouter::device_isidle(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const QString dev = toString(cmdObject.param(QStringLiteral("dev"))).trimmed();
    if (dev.isEmpty()) {
        retObject->setErr(kErrBadParam);
        return;
    }
    const int fd = ::open(dev.toUtf8().constData(), O_RDONLY | O_EXCL);
    if (fd < 0) {
        // Busy is answered by silence: no "err" at all. Routers searched before
        // this one have left the unknown-command code behind, so drop it here.
        retObject->remove(QStringLiteral("err"));
        return;
    }
    ::close(fd);
    retObject->setErr(kErrOk);
}
