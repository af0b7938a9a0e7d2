#include "vx/vxcommon.h"
#include "vx/vxdevice.h"
#include "vx/vxdisk.h"

#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2utils.h"

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo ");

// The disk holding dev (dev itself for a whole disk) is one the system
// runs from: never repartitioned or wiped.
bool onSystemDisk(VXDisk& disk, const QString& dev)
{
    QString parent = disk.devOf(dev);
    if (parent.isEmpty())
        parent = dev;
    const QJsonObject inventory = disk.allist();
    // Without an inventory the system disk cannot be ruled out.
    if (inventory.isEmpty())
        return true;
    for (auto it = inventory.begin(); it != inventory.end(); ++it) {
        const QJsonObject record = it.value().toObject();
        if (it.key() != parent && record.value(QLatin1String("dev")).toString() != parent)
            continue;
        if (toInt(record.value(QLatin1String("system"))) == 1)
            return true;
    }
    return false;
}

bool parted(const QString& dev, const QString& action)
{
    return cmdExec(kSudo + QStringLiteral("parted -s ") + dev + QLatin1Char(' ') + action, 9999);
}

bool wipeSignatures(const QString& dev)
{
    QString output;
    if (!runTool(kSudo + QStringLiteral("wipefs -a ") + dev, output))
        return false;
    // Also clears boot code and stale metadata that wipefs has no signature for.
    runTool(kSudo + QStringLiteral("dd if=/dev/zero of=") + dev +
                QStringLiteral(" bs=512K count=20"),
            output);
    return true;
}

} // namespace

bool VXDisk::createPart(const QString& dev)
{
    if (!isDevicePath(dev) || onSystemDisk(*this, dev))
        return false;
    return parted(dev, QStringLiteral("mklabel gpt")) &&
           parted(dev, QStringLiteral("mkpart primary 0% 100%")) &&
           parted(dev, QStringLiteral("set 1 raid on"));
}

bool VXDisk::removePart(const QString& dev)
{
    if (!isDevicePath(dev) || onSystemDisk(*this, dev))
        return false;
    // The signatures go even when there was no partition to delete.
    const bool removed = parted(dev, QStringLiteral("rm 1"));
    const bool wiped = cmdExec(kSudo + QStringLiteral("wipefs -a ") + dev, 9999);
    return removed && wiped;
}

bool VXDisk::wipefs(const QString& dev, bool background)
{
    if (!isDevicePath(dev) || onSystemDisk(*this, dev))
        return false;
    if (!background)
        return wipeSignatures(dev);
    return GX2Workers::start(QStringLiteral("wipefs ") + dev, [dev] { wipeSignatures(dev); });
}
