#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxlvminventoryparse.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"
#include "vx/vxraid.h"

#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QJsonArray>

namespace {

constexpr int kToolMs = 9999;
constexpr int kDfStartMs = 5000;
constexpr int kDfFinishMs = 10000;

// df's exit code is not looked at: one unreadable file system fails it while
// the lines of the others are fine.
QString df(const QStringList& arguments)
{
    return QString::fromUtf8(procRun(QStringLiteral("sudo"),
                                     QStringList{QStringLiteral("df")} + arguments, kDfStartMs,
                                     kDfFinishMs)
                                 .out);
}

} // namespace

bool VXLvm::lvDetail(QJsonObject& obj, const QString& dev)
{
    if (!isDevicePath(dev))
        return false;
    QString output;
    QJsonObject record;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo lvs --noheading --separator : -o "
                                "vg_name,vg_free,lv_name,lv_path,lv_dm_path,lv_size,lv_attr,"
                                "lv_tags --units b ") +
                     dev,
                 output, kToolMs) ||
        !lvRecordOf(output, record))
        return false;
    record.insert(QStringLiteral("crypt"), lvIsCrypt(dev) ? 1 : 0);
    const QString mountPath = toMountPath(record.value(QStringLiteral("vg")).toString(),
                                          record.value(QStringLiteral("lv")).toString());
    const QJsonObject mounts = lvMounts();
    if (!mountPath.isEmpty() && mounts.contains(mountPath)) {
        const QJsonObject mount = mounts.value(mountPath).toObject();
        record.insert(QStringLiteral("size"), mount.value(QStringLiteral("size")));
        record.insert(QStringLiteral("free"), mount.value(QStringLiteral("free")));
        record.insert(QStringLiteral("mntpath"), mountPath);
        record.insert(QStringLiteral("mounted"), 1);
    } else {
        record.insert(QStringLiteral("mounted"), 0);
    }
    // Only a volume whose attributes say cached can have a cache.
    QJsonObject cache;
    if (record.value(QStringLiteral("attr")).toString().startsWith(QLatin1Char('C')) &&
        lvCacheDetail(cache, record.value(QStringLiteral("vg")).toString(),
                      record.value(QStringLiteral("lv")).toString()))
        record.insert(QStringLiteral("cache"), cache);
    obj = record;
    return true;
}

QJsonObject VXLvm::vgDetail(const QString& vg, bool withAvailables)
{
    if (!isLvmName(vg))
        return QJsonObject();
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo vgdisplay -c ") + vg, output, kToolMs))
        return QJsonObject();
    QJsonObject detail = vgSizesOf(output, vg);
    if (detail.isEmpty())
        return detail;
    QStringList pvs;
    if (cmdExec(QStringLiteral("/usr/bin/sudo pvs --noheadings -o pv_name --reportformat json "
                               "-S vg_name=") +
                    vg,
                output, kToolMs))
        pvs = pvNamesOf(output.toUtf8());
    const QStringList cacheDisks = pvs.isEmpty() ? QStringList() : vgCacheAllist(vg);
    const QJsonObject figures = cacheDisks.isEmpty() ? QJsonObject() : vgCacheAlload(vg);
    VXDisk disk;
    const QJsonObject inventory = pvs.isEmpty() && !withAvailables ? QJsonObject() : disk.allist();
    QJsonArray disks;
    QJsonArray caches;
    for (const QString& pv : pvs) {
        QJsonObject record = diskRecordOf(inventory, pv);
        if (record.isEmpty()) {
            // A partition: the figures are those of its disk.
            const QString parent = disk.devOf(pv);
            if (!parent.isEmpty() && parent != pv)
                record = diskRecordOf(inventory, parent);
        }
        if (cacheDisks.contains(pv))
            caches.append(withCacheFigures(vgDiskOf(pv, record, QStringLiteral("cache")),
                                           figures.value(pv).toObject()));
        else
            disks.append(vgDiskOf(pv, record, QStringLiteral("data")));
    }
    detail.insert(QStringLiteral("disks"), disks);
    detail.insert(QStringLiteral("disks//"), QStringLiteral("逻辑卷组成员盘"));
    detail.insert(QStringLiteral("caches"), caches);
    detail.insert(QStringLiteral("caches//"), QStringLiteral("逻辑卷组缓存盘"));
    if (!withAvailables)
        return detail;
    QJsonArray availables;
    VXRaid raid;
    for (const QJsonObject& record : unusedDisksOf(inventory)) {
        const QString dev = record.value(QStringLiteral("dev")).toString();
        QJsonObject available = vgDiskOf(dev, record, QString());
        // An array serves as cache only when every member is solid-state.
        const bool ssd =
            record.value(QStringLiteral("type")).toString().startsWith(QLatin1String("raid"))
                ? raid.isAllSsd(dev)
                : disk.isSsd(dev);
        available.insert(QStringLiteral("ascache"), ssd ? 1 : 0);
        available.insert(QStringLiteral("ascache//"),
                         QStringLiteral("Usage: 1:允许作为缓存, 0:禁止作为缓存"));
        availables.append(available);
    }
    detail.insert(QStringLiteral("availables"), availables);
    detail.insert(QStringLiteral("availables//"),
                  QStringLiteral("允许扩展逻辑卷组或添加为缓存的磁盘"));
    return detail;
}

QJsonObject VXLvm::lvMounts()
{
    return lvMountsOf(df({QStringLiteral("-k")}));
}

bool VXLvm::lvMounted(qint64& size, qint64& used, qint64& avail, const QString& path)
{
    // A path starting with "-" would be read as an option.
    if (!path.startsWith(QLatin1Char('/')))
        return false;
    return dfFiguresOf(df({QStringLiteral("-l"), QStringLiteral("--block=1"),
                           QStringLiteral("--output=source,size,used,avail"), path}),
                       size, used, avail);
}
