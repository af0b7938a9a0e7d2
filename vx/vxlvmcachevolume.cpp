// A volume's SSD cache: the pool carved out of the placeholder of a cache
// disk, bound to the volume, unbound and given back, and its report.
#include "vx/vxdevice.h"
#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"
#include "vx/vxlvmcacheparse.h"
#include "vx/vxlvmlines.h"

#include "lnx2/lnx2utils.h"

namespace {

constexpr int kToolMs = 9999;
const QString kSudo = QStringLiteral("/usr/bin/sudo ");

int failed(QString& msg, int code, const QString& text)
{
    msg = text;
    return code;
}

// "devices" of one volume, hidden ones included: "name(extent)".
bool devicesOf(const QString& vg, const QString& lv, QString& output)
{
    return cmdExec(kSudo + QStringLiteral("lvs -a ") + vg +
                       QStringLiteral(" -o devices --noheadings -S lv_name=") + lv,
                   output, kToolMs);
}

} // namespace

int VXLvm::lvCacheAppend(QString& msg, const QString& vg, const QString& lv, const QString& disk,
                         int sizeMb, const QString& mode)
{
    if (!isLvmName(vg) || !isLvmName(lv) || !isDevicePath(disk))
        return failed(msg, kLvmTooSmall, QStringLiteral("参数错误"));
    if (!isCacheMode(mode))
        return failed(msg, kLvmCacheBindFailed, QStringLiteral("绑定缓存区失败"));
    const int avail = VXLvmPrivate::availCacheSizeMb(vg, disk);
    if (avail < sizeMb)
        return failed(msg, kLvmNoSpace, QStringLiteral("可用缓存空间不足"));
    const int size = sizeMb < 1 ? avail : sizeMb;
    const int pe = VXLvmPrivate::GetPESizeMb(vg);
    if (size < 3 * pe)
        return failed(msg, kLvmNoSpace, QStringLiteral("可用缓存空间不够"));

    const QString placeholder = vg + QLatin1Char('/') + cachePlaceholderName(vg, disk);
    cmdExec(kSudo + QStringLiteral("lvremove -f ") + placeholder + QStringLiteral(" -y"), kToolMs);
    const CacheExtents extents = cacheExtentsOf(avail, size, pe);
    // Kept after the removal above, so it finds nothing to reduce.
    if (extents.reduceK > 0)
        cmdExec(kSudo + QStringLiteral("lvreduce -L ") + QString::number(extents.reduceK) +
                    QStringLiteral("K ") + placeholder + QStringLiteral(" --force -y"),
                kToolMs);

    // Nothing made here is undone when a later step fails.
    const QString data = vg + QLatin1Char('_') + lv + QStringLiteral("_ssd_cache");
    const QString meta = data + QStringLiteral("_meta");
    if (!VXLvmPrivate::CreateCacheDataLV(meta, vg, disk, extents.metaK) ||
        !VXLvmPrivate::CreateCacheDataLV(data, vg, disk, extents.dataK))
        return failed(msg, kLvmCreateFailed, QStringLiteral("缓存空间创建失败"));
    if (!VXLvmPrivate::CreateCachePool(vg, meta, data))
        return failed(msg, kLvmCachePoolFailed, QStringLiteral("缓存池创建失败"));
    if (!VXLvmPrivate::CombineLVWithCache(vg, lv, data, mode))
        return failed(msg, kLvmCacheBindFailed, QStringLiteral("绑定缓存区失败"));
    // The placeholder comes back over what is left of the disk.
    vgCacheActive(vg, disk);
    return kLvmOk;
}

int VXLvm::lvCacheRemove(QString& msg, const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return failed(msg, kLvmTooSmall, QStringLiteral("参数错误"));
    const QString pool = lvCacheLVPool(vg, lv);
    if (pool.isEmpty())
        return failed(msg, kLvmNotFound, QStringLiteral("逻辑卷的缓存空间不存在"));
    QString output;
    if (!devicesOf(vg, pool, output))
        return failed(msg, kLvmCacheUnbindFailed, QStringLiteral("缓存池空间解绑失败"));
    // The pool's data sub-volume, and the disk under it.
    const QString sub = deviceBeforeParenOf(output);
    if (!isLvmName(sub))
        return failed(msg, kLvmCacheNameWrong, QStringLiteral("逻辑卷缓存区名称错误"));
    QString subOutput;
    if (!devicesOf(vg, sub, subOutput))
        return failed(msg, kLvmCacheQueryFailed, subOutput);
    const QString disk = deviceBeforeParenOf(subOutput);

    vgCacheRepair(vg);
    if (!cmdExec(kSudo + QStringLiteral("lvconvert --uncache ") + vg + QLatin1Char('/') + lv +
                     QStringLiteral(" --force -y"),
                 kToolMs) ||
        !VXLvmPrivate::vgAlterToCache(vg, disk))
        return failed(msg, kLvmFailed, subOutput);
    return kLvmOk;
}

bool VXLvm::lvCacheExists(const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return false;
    QString output;
    return cmdExec(kSudo + QStringLiteral("lvs -a --noheadings -o lv_layout -S lv_name=") + lv +
                       QLatin1Char(' ') + vg,
                   output, kToolMs) &&
           output.trimmed() == QLatin1String("cache");
}

QString VXLvm::lvCacheLVPool(const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return QString();
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs -a ") + vg +
                     QStringLiteral(" -o pool_lv --noheadings -S lv_name=") + lv,
                 output, kToolMs))
        return QString();
    // The name goes into further command lines.
    const QString pool = bracketedNameOf(output);
    return isLvmName(pool) ? pool : QString();
}

bool VXLvm::lvCacheDev(QString& dev, const QString& vg, const QString& lv)
{
    if (!isLvmName(vg) || !isLvmName(lv))
        return false;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs -a ") + vg +
                     QStringLiteral(" -o lv_name,pool_lv,devices --noheadings --reportformat json"),
                 output, kToolMs))
        return false;
    const QString found = cacheDevOf(output, lv);
    if (found.isEmpty())
        return false;
    dev = found;
    return true;
}

bool VXLvm::lvCacheDetail(QJsonObject& obj, const QString& vg, const QString& lv)
{
    if (!lvCacheExists(vg, lv))
        return false;
    const QString pool = lvCacheLVPool(vg, lv);
    if (pool.isEmpty())
        return false;
    QString output;
    if (!cmdExec(kSudo + QStringLiteral("lvs -a ") + vg + QStringLiteral(" -S lv_name=") + pool +
                     QStringLiteral(
                         " --units k  --reportformat json  -o lv_size,lv_metadata_size,"
                         "cache_total_blocks,data_percent,metadata_percent,copy_percent,"
                         "cache_used_blocks,cache_dirty_blocks,cache_read_hits,cache_read_misses,"
                         "cache_write_hits,cache_write_misses,cache_mode"),
                 output, kToolMs))
        return false;
    QJsonObject detail = cacheDetailOf(output);
    if (detail.isEmpty())
        return false;
    QString dev;
    if (lvCacheDev(dev, vg, lv))
        detail.insert(QStringLiteral("lvpath"), dev);
    QString paths;
    if (devicesOf(vg, pool, paths))
        detail.insert(QStringLiteral("cachepath"), paths);
    obj = detail;
    return true;
}
