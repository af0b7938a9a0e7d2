#pragma once

// Pure readers of the lvs outputs the SSD cache code runs, and the names
// and sizes it derives.
#include <QJsonObject>
#include <QString>
#include <QStringList>

// "<vg>_<diskname>_unused_cache": the placeholder over a cache disk.
QString cachePlaceholderName(const QString& vg, const QString& disk);

// Cache modes reach the lvconvert line as given: lower-case letters only.
bool isCacheMode(const QString& mode);

// "lvs VG/PLACEHOLDER --noheading -o lv_size --units m" ("  100.00m"):
// trimmed, the unit letter dropped, rounded up from 0.01 MiB on; 0 when
// unreadable.
int cachePlaceholderMbOf(const QString& out);

// The extents a cache of sizeMb (already resolved, not 0) takes from a
// placeholder of availMb on a group with peMb extents.
struct CacheExtents
{
    qint64 alignedMb = 0; // whole extents of sizeMb
    qint64 reduceK = 0;   // what is left of the placeholder; 0 when nothing
    qint64 metaK = 0;     // the pool's metadata, a twentieth rounded up to extents
    qint64 dataK = 0;     // the rest, less the metadata and its spare copy
};
CacheExtents cacheExtentsOf(int availMb, int sizeMb, int peMb);

// "lvs -o pool_lv": the name inside "[...]" of the trimmed output; "" when
// it is not bracketed.
QString bracketedNameOf(const QString& out);

// "lvs -o devices" ("  vg1_data_ssd_cache_cpool_cdata(0)"): the trimmed
// text before "("; "" when there is none or "(" is the first character.
QString deviceBeforeParenOf(const QString& out);

// "lvs -o +devices --noheadings -a VG": the disks of the placeholders and
// cache data volumes, in order of first appearance.
QStringList cacheDisksOf(const QString& out);

// "lvs -a --reportformat json -o vg_name,lv_path,lv_name,lv_size --unit b":
// {"<vg>": {"capacity", "size" (bound cache), "free" (placeholders)}} for
// the groups with cache space.
QJsonObject cacheGroupsOf(const QString& json);

// "lvs -o +devices --noheadings -a VG" (default units): {"<disk>": {"dev",
// "size", "free", "capacity"}}, each disk with the figures of its last
// cache line.
QJsonObject cacheDisksLoadOf(const QString& out);

// "lvs -a VG -o lv_name,pool_lv,devices --reportformat json": the disk
// under the cache pool of lv (lv -> pool -> pool data -> disk); "" when a
// link is missing.
QString cacheDevOf(const QString& json, const QString& lv);

// "lvs -a VG -S lv_name=POOL --units k --reportformat json -o lv_size,
// lv_metadata_size,...": the first entry with "size" = data + twice the
// metadata (the spare copy) in bytes instead of lv_size and
// lv_metadata_size; {} when the report is empty.
QJsonObject cacheDetailOf(const QString& json);
