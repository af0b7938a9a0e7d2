#pragma once

// Pure readers of the vgs, lvs, pvs, df and blkid outputs of the volume
// inventory, and the fstab/crypttab clean-up after lost volumes. Sizes are
// bytes; df "-k" figures are KiB multiplied by 1024.

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

// "vgs --noheading --separator : -o vg_name,vg_size,vg_free --units b":
// {"<vg>": {"vg", "size", "free"}} from the lines of exactly three fields.
QJsonObject vgSummariesOf(const QString& out);

// "lvs --noheading --separator : -o lv_name,vg_name,lv_path,lv_dm_path,
// lv_size --units b": {"<vg>": {"<lv>": {"vg", "lv", "lvpath", "dmpath",
// "capacity"}}}; cache placeholders ("_unused_cache") left out.
QJsonObject volumeListOf(const QString& out);

// One line of "lvs --noheading --separator : -o vg_name,lv_name,lv_path,
// lv_dm_path,lv_size,lv_attr,lv_tags --units b".
struct InventoryVolume
{
    QString vg;
    QString lv;
    QString lvPath; // empty for a thin pool
    QString dmPath;
    qint64 capacity = 0;
    QString attr;
    QStringList tags;
};
// The lines with more than six fields and a volume name, placeholders
// left out, in output order.
QList<InventoryVolume> inventoryVolumesOf(const QString& out);
// The first of "lun", "xfs", "btrfs", "ext4", "ext3", "ntfs" among the tags.
QString tagFstypeOf(const QStringList& tags);
// The volume record without "crypt" and mount figures: "mounted" 0,
// "fstype" from the tags.
QJsonObject inventoryRecordOf(const InventoryVolume& volume, bool extensible);

// "df -k" mount entries {"dev", "userate", "capacity", "size" (used), "free",
// "mntpath"}:
// of "/" and of "/mnt/..." mounts whose source is a path, keyed by mount point;
QJsonObject allMountsOf(const QString& dfOut);
// of every "/dev/" source, keyed by the source;
QJsonObject devMountsOf(const QString& dfOut);
// of "/dev/" sources mounted under "/mnt/", keyed by the source, with only
// "userate", "capacity", "size", "free" (and "mntpath" when withMountPath).
QJsonObject mountsByDevOf(const QString& dfOut, bool withMountPath);
// The single column of "df --output=source" or "--output=target": the lines
// after the header, trimmed, empty ones left out.
QStringList dfColumnOf(const QString& out);
// "df -P -l -BM PATH": {"lvsize", "lvused", "lvfree", "capacity",
// "mntpath"}; the "M" suffixed figures do not read as integers and give 0.
// {} without a data line of six fields.
QJsonObject lvFreeOf(const QString& out);

// "blkid -o export DEV": every KEY=VALUE but DEVNAME, values as text.
QJsonObject blkidExportOf(const QString& out);
// "blkid -s UUID -o export DEV": the trimmed value of the first UUID line.
QString blkidUuidOf(const QString& out);
// "pvs --noheadings -o pv_name --reportformat json": the pv_name values.
QStringList pvNamesOf(const QByteArray& json);

// vgDetail's disks. The VXDisk::allist() record whose key or "dev" is path.
QJsonObject diskRecordOf(const QJsonObject& inventory, const QString& path);
// The disk object of dev from its inventory record (may be empty).
QJsonObject vgDiskOf(const QString& dev, const QJsonObject& record, const QString& role);
// A cache disk's object with "capacity", "size", "free" from its entry of
// VXLvm::vgCacheAlload(vg) (0 without one).
QJsonObject withCacheFigures(QJsonObject disk, const QJsonObject& figures);
// The inventory records neither in use nor the system disk, in key order.
QList<QJsonObject> unusedDisksOf(const QJsonObject& inventory);

// fixlost. fstab lines kept when their "/mnt/..." target is mounted (other
// lines always), and the mapping names of every "..._crypt" source seen,
// dropped lines included.
struct FstabCleanup
{
    QStringList kept;
    QStringList mappings;
    bool dropped = false;
};
FstabCleanup fstabCleanupOf(const QString& fstab, const QStringList& mounted);
// crypttab lines kept: comments, blank lines, lines of a mapping in mappings.
QStringList crypttabCleanupOf(const QString& crypttab, const QStringList& mappings, bool* dropped);
