#include "vx/vxdisk.h"

#include "vx/vxcommon.h"
#include "vx/vxdevice.h"
#include "vx/vxdisk_p.h"
#include "vx/vxdiskparse.h"

#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;

// The tool's output when dev is a device path and the command succeeded.
bool deviceTool(const QString& command, const QString& dev, QString& output)
{
    return isDevicePath(dev) && cmdExec(command + dev, output, kToolMs);
}

QString nameOf(const QString& dev)
{
    return dev.mid(dev.lastIndexOf(QLatin1Char('/')) + 1);
}

} // namespace

VXDisk::VXDisk() : d(new VXDiskPrivate) {}

VXDisk::~VXDisk() = default;

QString VXDisk::devOf(const QString& part)
{
    QString output;
    if (!isDevicePath(part))
        return QString();
    if (!deviceTool(QStringLiteral("/usr/bin/sudo lsblk -ndpo pkname "), part, output))
        return part;
    return parentDiskOf(output, part);
}

QStringList VXDisk::partsOf(const QString& dev)
{
    QString output;
    if (!deviceTool(QStringLiteral("/usr/bin/sudo lsblk -lno PATH,TYPE "), dev, output))
        return QStringList();
    return partitionsOf(output);
}

QString VXDisk::partOf(const QString& dev)
{
    const QStringList parts = partsOf(dev);
    return parts.isEmpty() ? QString() : parts.first();
}

QStringList VXDisk::partitions(const QString& dev)
{
    QString output;
    if (!isDevicePath(dev) ||
        !runTool(QStringLiteral("/usr/bin/sudo lsblk -lno PATH,TYPE ") + dev, output))
        return QStringList();
    return partitionsOf(output);
}

bool VXDisk::partExists(const QString& dev)
{
    QString output;
    if (!isDevicePath(dev) || !cmdExec(QStringLiteral("/usr/bin/sudo fdisk -l"), output, kToolMs))
        return false;
    return fdiskLists(output, dev);
}

QStringList VXDisk::names()
{
    QString output;
    if (!cmdExec(QStringLiteral("lsblk -ablJ -o name,path,type"), output, kToolMs))
        return QStringList();
    return diskPathsOf(output);
}

bool VXDisk::isSsd(const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    // "/dev/sda" gives "/sda"; the doubled slash is harmless. A missing
    // file reads as 0, so only whole disks give a meaningful answer.
    const QString tail = dev.mid(dev.lastIndexOf(QLatin1Char('/')));
    const QString flag =
        readSysFile(QStringLiteral("/sys/block/") + tail + QStringLiteral("/queue/rotational"));
    return flag.trimmed().toInt() == 0;
}

QString VXDisk::model(const QString& dev, QString* vendor)
{
    if (!isDevicePath(dev))
        return QString();
    const QString base = QStringLiteral("/sys/class/block/") + nameOf(dev);
    if (vendor)
        *vendor = readSysFile(base + QStringLiteral("/device/vendor")).trimmed();
    return readSysFile(base + QStringLiteral("/device/model")).trimmed();
}

bool VXDisk::serialNumber(QString& serial, const QString& dev)
{
    QString output;
    if (!deviceTool(QStringLiteral("/usr/bin/sudo hdparm -I "), dev, output))
        return false;
    return hdparmSerial(serial, output);
}

QString VXDisk::fstype(const QString& dev)
{
    QString output;
    if (!isDevicePath(dev) ||
        !cmdExec(QStringLiteral("/usr/bin/sudo parted -s ") + dev + QStringLiteral(" print"),
                 output, kToolMs))
        return QString();
    return partedFstype(output);
}
