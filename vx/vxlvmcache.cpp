// SSD cache disks of a group: joining, the placeholder over them, leaving,
// and the reports of cache space. The per-volume part is in
// vxlvmcachevolume.cpp.
#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"
#include "vx/vxlvmcacheparse.h"
#include "vx/vxlvmlines.h"

#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;
const QString kSudo = QStringLiteral("/usr/bin/sudo ");

bool groupDiskValid(const QString& vg, const QString& disk)
{
    return isLvmName(vg) && isDevicePath(disk);
}

// "<vg>/<placeholder>" as lvs, lvremove and lvreduce take it.
QString placeholderPath(const QString& vg, const QString& disk)
{
    return vg + QLatin1Char('/') + cachePlaceholderName(vg, disk);
}

// Every volume with its segments' devices, default columns.
bool listWithDevices(const QString& vg, QString& output)
{
    return cmdExec(kSudo + QStringLiteral("lvs -o +devices --noheadings -a ") + vg, output,
                   kToolMs);
}

} // namespace

int VXLvmPrivate::availCacheSizeMb(const QString& vg, const QString& disk)
{
    if (!groupDiskValid(vg, disk))
        return 0;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs ") + placeholderPath(vg, disk) +
                     QStringLiteral(" --noheading -o lv_size --units m"),
                 output, kToolMs))
        return 0;
    return cachePlaceholderMbOf(output);
}

bool VXLvmPrivate::CreateCacheDataLV(const QString& name, const QString& vg, const QString& disk,
                                     qint64 sizeK)
{
    if (!isLvmName(name) || !groupDiskValid(vg, disk))
        return false;
    const QString size = sizeK < 1
                             ? QStringLiteral("-l 100%FREE")
                             : QStringLiteral("-L ") + QString::number(sizeK) + QLatin1Char('K');
    return cmdExec(kSudo + QStringLiteral("lvcreate -y -n ") + name + QLatin1Char(' ') + size +
                       QLatin1Char(' ') + vg + QLatin1Char(' ') + disk,
                   kToolMs);
}

bool VXLvmPrivate::ExtendLVonPV(const QString& vg, const QString& lv, const QString& disk,
                                qint64 sizeK)
{
    if (!isLvmName(lv) || !groupDiskValid(vg, disk))
        return false;
    const QString size = sizeK < 1
                             ? QStringLiteral("-l +100%FREE")
                             : QStringLiteral("-L ") + QString::number(sizeK) + QLatin1Char('K');
    return cmdExec(kSudo + QStringLiteral("lvextend ") + size + QLatin1Char(' ') + vg +
                       QLatin1Char('/') + lv + QLatin1Char(' ') + disk,
                   kToolMs);
}

bool VXLvmPrivate::CreateCachePool(const QString& vg, const QString& meta, const QString& data)
{
    if (!isLvmName(vg) || !isLvmName(meta) || !isLvmName(data))
        return false;
    return cmdExec(kSudo + QStringLiteral("lvconvert --type cache-pool --poolmetadata ") + meta +
                       QLatin1Char(' ') + vg + QLatin1Char('/') + data + QStringLiteral(" -y"),
                   kToolMs);
}

bool VXLvmPrivate::CombineLVWithCache(const QString& vg, const QString& lv, const QString& pool,
                                      const QString& mode)
{
    if (!isLvmName(vg) || !isLvmName(lv) || !isLvmName(pool) || !isCacheMode(mode))
        return false;
    return cmdExec(kSudo + QStringLiteral("lvconvert --type cache --cachepool ") + pool +
                       QStringLiteral(" --cachemode ") + mode + QLatin1Char(' ') + vg +
                       QLatin1Char('/') + lv + QStringLiteral(" --force -y"),
                   kToolMs);
}

bool VXLvmPrivate::vgAlterToCache(const QString& vg, const QString& disk)
{
    return VXLvm::vgCacheActive(vg, disk);
}

bool VXLvm::vgCacheActive(const QString& vg, const QString& disk)
{
    if (!groupDiskValid(vg, disk))
        return false;
    const QString placeholder = cachePlaceholderName(vg, disk);
    if (VXLvmPrivate::availCacheSizeMb(vg, disk) < 1)
        return VXLvmPrivate::CreateCacheDataLV(placeholder, vg, disk, -1);
    // Grows over whatever became free on that disk.
    return VXLvmPrivate::ExtendLVonPV(vg, placeholder, disk, -1);
}

bool VXLvm::vgCacheRepair(const QString& vg)
{
    if (!isLvmName(vg))
        return false;
    return cmdExec(kSudo + QStringLiteral("vgreduce ") + vg +
                       QStringLiteral(" --removemissing --force -y"),
                   kToolMs);
}

int VXLvm::vgCacheAppend(QString& msg, const QString& vg, const QString& disk)
{
    if (!groupDiskValid(vg, disk)) {
        msg = QStringLiteral("参数错误");
        return kLvmTooSmall;
    }
    vgCacheRepair(vg);
    if (!VXDisk().wipefs(disk, false))
        return kLvmCacheNameWrong;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("pvcreate ") + disk, output, kToolMs)) {
        msg = output;
        return kLvmCreateFailed;
    }
    if (vgExtend(msg, vg, {disk}) != kLvmOk)
        return kLvmCacheExtendFailed;
    return vgCacheActive(vg, disk) ? kLvmOk : kLvmCachePlaceholderFailed;
}

int VXLvm::vgCacheRemove(const QString& vg, const QString& disk)
{
    if (!groupDiskValid(vg, disk))
        return 1;
    vgCacheRepair(vg);
    if (!vgCacheAllist(vg).contains(disk))
        return 1;
    if (!cmdExec(kSudo + QStringLiteral("lvremove -f ") + placeholderPath(vg, disk) +
                     QStringLiteral(" -y"),
                 kToolMs))
        return kLvmFailed;
    // Fails while a cache pool still uses the disk: the placeholder returns.
    if (!cmdExec(kSudo + QStringLiteral("vgreduce ") + vg + QLatin1Char(' ') + disk +
                     QStringLiteral(" -y"),
                 kToolMs)) {
        vgCacheActive(vg, disk);
        return kLvmFailed;
    }
    VXDisk().wipefs(disk, false);
    return kLvmOk;
}

QStringList VXLvm::vgCacheAllist(const QString& vg)
{
    QString output;
    if (!isLvmName(vg) || !listWithDevices(vg, output))
        return {};
    return cacheDisksOf(output);
}

QJsonObject VXLvm::vgCacheAlload()
{
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs -a --reportformat json --noheadings -o "
                                        "vg_name,lv_path,lv_name,lv_size --unit b"),
                 output, kToolMs))
        return {};
    return cacheGroupsOf(output);
}

QJsonObject VXLvm::vgCacheAlload(const QString& vg)
{
    QString output;
    if (!isLvmName(vg) || !listWithDevices(vg, output))
        return {};
    return cacheDisksLoadOf(output);
}
