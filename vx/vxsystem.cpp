#include "vx/vxsystem.h"

#include "gx2/gx2brolt.h"
#include "gx2/gx2file.h"
#include "gx2/gx2syspath.h"
#include "lnx2/lnx2utils.h"
#include "vx/vxsysparse.h"

#include <ctime>

namespace {

bool daemonSaysYes(const char* cmd, int pid)
{
    QJsonObject answer;
    const QJsonObject request{{"cmd", cmd}, {"params", QJsonObject{{"pid", pid}}}};
    return broltRequest(answer, request, 5000) == 0;
}

} // namespace

QJsonObject VXSystem::uptime()
{
    // BOOTTIME, not MONOTONIC: a user counts the time the box spent
    // suspended as time since it was switched on.
    timespec now{};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        clock_gettime(CLOCK_MONOTONIC, &now);
    return uptimeOf(static_cast<qint64>(now.tv_sec));
}

QString VXSystem::loadAverage()
{
    QString out;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo uptime"), out, 9999))
        return QString();
    return loadAverageOf(out);
}

QString VXSystem::kernelVersion()
{
    return kernelVersionOf(
        QString::fromUtf8(GX2File::readAll(sysPath(QStringLiteral("/proc/version")))));
}

QString VXSystem::version()
{
    const QJsonValue value =
        GX2File::readJsonObject(sysPath(QStringLiteral("/orvo/etc/version.json")))
            .value("PRODUCT_PACKAGE_VERSION");
    return value.isUndefined() || value.isNull() ? QString() : value.toVariant().toString();
}

bool VXSystem::processExists(int pid)
{
    return daemonSaysYes("process_exists", pid);
}

bool VXSystem::processKill(int pid)
{
    return daemonSaysYes("process_kill", pid);
}
