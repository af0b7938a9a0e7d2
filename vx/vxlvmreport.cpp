#include "vx/vxlvm.h"
#include "vx/vxlvm_p.h"

#include "vx/vxdevice.h"
#include "vx/vxdisk.h"
#include "vx/vxlvminventoryparse.h"

#include "gx2/gx2syspath.h"
#include "gx2/gx2utils.h"
#include "lnx2/lnx2process.h"
#include "lnx2/lnx2utils.h"

#include <QFile>
#include <QMap>

namespace {

constexpr int kToolMs = 9999;
constexpr int kDfStartMs = 5000;
constexpr int kDfFinishMs = 10000;
constexpr int kBlkidStartMs = 999;
constexpr int kBlkidFinishMs = 10000;

const QString kVgsLine = QStringLiteral(
    "/usr/bin/sudo vgs --noheading --separator : -o vg_name,vg_size,vg_free --units b");

// df's exit code is not looked at: one unreadable file system fails it while
// the lines of the others are fine.
QString dfOutput(const QStringList& arguments)
{
    return QString::fromUtf8(
        procRun(QStringLiteral("sudo"), arguments, kDfStartMs, kDfFinishMs).out);
}

QString dfK()
{
    return dfOutput({QStringLiteral("df"), QStringLiteral("-k")});
}

// Mount figures of a mounted volume; "mounted" 0 for an empty mount entry.
void applyMount(QJsonObject& record, const QJsonObject& mount, const QString& mountPath)
{
    if (mount.isEmpty()) {
        record.insert(QStringLiteral("mounted"), 0);
        return;
    }
    record.insert(QStringLiteral("size"), mount.value(QStringLiteral("size")));
    record.insert(QStringLiteral("free"), mount.value(QStringLiteral("free")));
    record.insert(QStringLiteral("mntpath"), mountPath);
    record.insert(QStringLiteral("mounted"), 1);
}

// The entry df lists for the volume: its dm path, its LV path, or the LUKS
// mapping of an encrypted one.
QJsonObject mountOfDevice(const QJsonObject& byDev, const InventoryVolume& volume)
{
    for (const QString& dev : {volume.dmPath, volume.lvPath,
                               QStringLiteral("/dev/mapper/") + volume.vg + QLatin1Char('-') +
                                   volume.lv + QStringLiteral("_crypt")}) {
        if (!dev.isEmpty() && byDev.contains(dev))
            return byDev.value(dev).toObject();
    }
    return QJsonObject();
}

// alload and whole: whole decides the file system from the tags alone and
// finds mounts by device rather than by the volume's own mount point.
QJsonObject volumeWalk(bool whole)
{
    QString output;
    if (!cmdExec(kVgsLine, output, kToolMs))
        return QJsonObject();
    const QJsonObject summaries = vgSummariesOf(output);
    if (!cmdExec(QStringLiteral("/usr/bin/sudo lvs --noheading --separator : -o "
                                "vg_name,lv_name,lv_path,lv_dm_path,lv_size,lv_attr,lv_tags "
                                "--units b"),
                 output, kToolMs))
        return QJsonObject();
    const QJsonObject mounts = whole ? mountsByDevOf(dfK(), true) : VXLvm::lvMounts();
    VXDisk disk;
    QMap<QString, QJsonObject> volumesOf;
    for (const InventoryVolume& volume : inventoryVolumesOf(output)) {
        if (!summaries.contains(volume.vg))
            continue;
        const QJsonObject summary = summaries.value(volume.vg).toObject();
        QJsonObject record =
            inventoryRecordOf(volume, toInt64(summary.value(QStringLiteral("free"))) > 0);
        const QString fstype = tagFstypeOf(volume.tags);
        if (!whole && fstype != QLatin1String("lun"))
            record.insert(QStringLiteral("fstype"), disk.fstype(volume.lvPath));
        record.insert(QStringLiteral("crypt"), VXLvm::lvIsCrypt(volume.lvPath) ? 1 : 0);
        if (whole) {
            const QJsonObject mount = mountOfDevice(mounts, volume);
            applyMount(record, mount, mount.value(QStringLiteral("mntpath")).toString());
        } else {
            const QString mountPath = VXLvm::toMountPath(volume.vg, volume.lv);
            applyMount(record, mounts.value(mountPath).toObject(), mountPath);
        }
        // Only a volume whose attributes say cached can have a cache; the
        // detail costs several queries.
        QJsonObject cache;
        if (volume.attr.startsWith(QLatin1Char('C')) &&
            VXLvm::lvCacheDetail(cache, volume.vg, volume.lv))
            record.insert(QStringLiteral("cache"), cache);
        volumesOf[volume.vg].insert(volume.lv, record);
    }
    const QJsonObject caches = VXLvm::vgCacheAlload();
    QJsonObject groups;
    for (auto it = summaries.constBegin(); it != summaries.constEnd(); ++it) {
        const QJsonObject summary = it.value().toObject();
        QJsonObject group{{QStringLiteral("vg"), it.key()},
                          {QStringLiteral("capacity"), summary.value(QStringLiteral("size"))},
                          {QStringLiteral("free"), summary.value(QStringLiteral("free"))},
                          {QStringLiteral("lvs"), volumesOf.value(it.key())}};
        if (caches.contains(it.key()))
            group.insert(QStringLiteral("cache"), caches.value(it.key()));
        groups.insert(it.key(), group);
    }
    return groups;
}

// Truncates an open table and writes the lines, each with its newline.
bool rewrite(QFile& file, const QStringList& lines)
{
    QByteArray text;
    for (const QString& line : lines)
        text += line.toUtf8() + '\n';
    return file.resize(0) && file.seek(0) && file.write(text) == text.size() && file.flush();
}

} // namespace

QJsonObject VXLvm::vgAlload()
{
    QString output;
    if (!cmdExec(kVgsLine, output, kToolMs))
        return QJsonObject();
    return vgSummariesOf(output);
}

QStringList VXLvm::groups()
{
    return vgAlload().keys();
}

QJsonObject VXLvm::allist()
{
    QString output;
    if (!cmdExec(QStringLiteral("/usr/bin/sudo lvs --noheading --separator : -o "
                                "lv_name,vg_name,lv_path,lv_dm_path,lv_size --units b"),
                 output, kToolMs))
        return QJsonObject();
    return volumeListOf(output);
}

QJsonObject VXLvm::alload()
{
    return volumeWalk(false);
}

QJsonObject VXLvm::whole()
{
    return volumeWalk(true);
}

QJsonObject VXLvm::lvAllMounts()
{
    // As the web server's user: it sees the mounts the front end can serve.
    return allMountsOf(
        dfOutput({QStringLiteral("-H"), QStringLiteral("-u"), QStringLiteral("www-data"),
                  QStringLiteral("df"), QStringLiteral("-k")}));
}

QJsonObject VXLvm::lvDevMounts()
{
    return devMountsOf(dfK());
}

QJsonObject VXLvm::lvMountsByDev()
{
    return mountsByDevOf(dfK(), false);
}

QStringList VXLvmPrivate::allMounted()
{
    return dfColumnOf(
        dfOutput({QStringLiteral("df"), QStringLiteral("-l"), QStringLiteral("--output=source")}));
}

QJsonObject VXLvm::lvFree(const QString& path)
{
    // A path starting with "-" would be read as an option.
    if (!path.startsWith(QLatin1Char('/')))
        return QJsonObject();
    return lvFreeOf(dfOutput({QStringLiteral("df"), QStringLiteral("-P"), QStringLiteral("-l"),
                              QStringLiteral("-BM"), path}));
}

QJsonObject VXLvm::blockDevice(const QString& dev)
{
    if (!isDevicePath(dev))
        return QJsonObject();
    const LNX2ProcResult run = procRunLine(QStringLiteral("/usr/bin/sudo blkid -o export ") + dev,
                                           kBlkidStartMs, kBlkidFinishMs);
    return run.ok() ? blkidExportOf(QString::fromUtf8(run.out) + QLatin1Char('\n')) : QJsonObject();
}

QString VXLvmPrivate::toUuid(const QString& dev)
{
    if (!isDevicePath(dev))
        return QString();
    // Started without a shell: ">/dev/null" is one more argument to blkid,
    // not a redirection.
    const LNX2ProcResult run =
        procRunLine(QStringLiteral("/usr/bin/sudo blkid -s UUID -o export ") + dev +
                        QStringLiteral(" >/dev/null"),
                    kBlkidStartMs, kBlkidFinishMs);
    return run.ok() ? blkidUuidOf(QString::fromUtf8(run.out)) : QString();
}

QString VXLvm::toUuid(const QString& dev)
{
    return VXLvmPrivate::toUuid(dev);
}

bool VXLvm::fixlost()
{
    const LNX2ProcResult run =
        procRun(QStringLiteral("sudo"),
                {QStringLiteral("df"), QStringLiteral("-l"), QStringLiteral("--output=target")},
                kDfStartMs, kDfFinishMs);
    // Without a listing every /mnt/ line would look lost.
    const QStringList mounted = run.ok() ? dfColumnOf(QString::fromUtf8(run.out)) : QStringList();
    if (mounted.isEmpty())
        return false;
    std::lock_guard<std::mutex> guard(VXLvmPrivate::tablesLock());
    QFile fstab(sysPath(VXLvmPrivate::ETC_FSTAB));
    if (!fstab.open(QIODevice::ReadWrite))
        return false;
    const FstabCleanup cleanup = fstabCleanupOf(cmdText(fstab.readAll()), mounted);
    const bool changed = cleanup.dropped && rewrite(fstab, cleanup.kept);
    fstab.close();
    QFile crypttab(sysPath(VXLvmPrivate::ETC_CRYPTTAB));
    if (crypttab.open(QIODevice::ReadWrite)) {
        bool dropped = false;
        const QStringList kept =
            crypttabCleanupOf(cmdText(crypttab.readAll()), cleanup.mappings, &dropped);
        if (dropped)
            rewrite(crypttab, kept);
    }
    return changed;
}
