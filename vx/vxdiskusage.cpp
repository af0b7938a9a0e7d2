#include "vx/vxdisk.h"

#include "vx/vxcommon.h"
#include "vx/vxdevice.h"
#include "vx/vxdisk_p.h"
#include "vx/vxdiskparse.h"

#include "gx2/gx2syspath.h"
#include "lnx2/lnx2utils.h"

#include <QFileInfo>

namespace {

constexpr int kToolMs = 9999;

QJsonObject probeEach(const QStringList& devices)
{
    QJsonObject info;
    for (const QString& dev : devices)
        info.insert(dev, VXDiskPrivate::probe(dev));
    return info;
}

} // namespace

int VXDisk::usedFor(const QString& dev)
{
    const QString path = dev.trimmed();
    QString output;
    if (!isDevicePath(path) ||
        !cmdExec(QStringLiteral("lsblk -ablJ -o name,path,type,size,tran,state,mountpoint ") + path,
                 output, kToolMs))
        return 0;
    const QJsonArray devices = lsblkJson(output).value(QStringLiteral("blockdevices")).toArray();
    if (devices.isEmpty())
        return 0;
    if (!devices.first().toObject().value(QStringLiteral("mountpoint")).toString().isEmpty())
        return 1;
    const QString type = VXDiskPrivate::probe(path).value(QStringLiteral("type")).toString();
    if (type == QLatin1String("linux_raid_member"))
        return usedForRaid(path) ? 2 : 0;
    if (type == QLatin1String("LVM2_member"))
        return usedForLvm(path) ? 3 : 0;
    if (type == QLatin1String("zfs_member"))
        return usedForZfs(path) ? 4 : 0;
    return 0;
}

bool VXDisk::usedForMounted(const QString& dev, QString* mountpoint)
{
    return isDevicePath(dev) &&
           mtabMountOf(readSysFile(QStringLiteral("/etc/mtab")), dev, mountpoint);
}

// Asks whether dev names a running array itself, not whether it is a
// member of one: usedFor relies on exactly this question.
bool VXDisk::usedForRaid(const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    const QString name = dev.mid(dev.lastIndexOf(QLatin1Char('/')) + 1);
    return mdstatHasArray(readSysFile(QStringLiteral("/proc/mdstat")), name);
}

bool VXDisk::usedForLvm(const QString& dev)
{
    QString output;
    return isDevicePath(dev) &&
           cmdExec(QStringLiteral("/usr/bin/sudo pvs --noheading --separator : -o vg_name ") + dev,
                   output, kToolMs) &&
           !output.trimmed().isEmpty();
}

bool VXDisk::usedForZfs(const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    const QStringList members = allZfsMembers();
    return members.contains(dev) || members.contains(devOf(dev));
}

QStringList VXDisk::allRaidMembers()
{
    return mdstatMembers(readSysFile(QStringLiteral("/proc/mdstat")));
}

QStringList VXDisk::allLvmMembers()
{
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo pvs --noheading --separator : -o vg_name,pv_name"),
                 output, kToolMs))
        return QStringList();
    return pvsMembers(output);
}

QStringList VXDisk::allZfsMembers()
{
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo zpool status -LP "), output, kToolMs))
        return QStringList();
    return zpoolMembers(output);
}

QStringList VXDisk::allDevices()
{
    return diskstatsDevices(readSysFile(QStringLiteral("/proc/diskstats")));
}

QStringList VXDisk::physicalDevices()
{
    QStringList physical;
    const QStringList devices = allDevices();
    for (const QString& dev : devices) {
        const QString name = dev.mid(5);
        if (QFileInfo(sysPath(QStringLiteral("/sys/block/") + name + QStringLiteral("/device")))
                .isDir())
            physical << dev;
    }
    return physical;
}

QJsonObject VXDisk::allDevicesInfo()
{
    return probeEach(allDevices());
}

QJsonObject VXDisk::physicalDisks()
{
    return probeEach(physicalDevices());
}
