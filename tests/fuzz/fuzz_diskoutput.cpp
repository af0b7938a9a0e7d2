// libFuzzer target for the readers of disk tool output (lsblk JSON,
// /proc/mdstat, mdadm -D, pvs, parted, hdparm, fdisk, smartctl, iotop, zfs list, the LVM,
// df, cryptsetup and findmnt outputs of the volume code, the lvs outputs of the SSD cache,
// and the vgs/lvs/df/blkid outputs and fstab/crypttab clean-up of the volume inventory):
// a tool that prints something unexpected must give an empty or consistent result, never
// a crash.

#include "vx/vxdiskparse.h"
#include "vx/vxhealthparse.h"
#include "vx/vxlvmcacheparse.h"
#include "vx/vxlvminventoryparse.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"
#include "vx/vxlvmtables.h"
#include "vx/vxraidparse.h"
#include "vx/vxzfs.h"

#include "gx2/gx2utils.h"

#include <QJsonDocument>
#include <QRegularExpression>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void check(bool ok, const char* what)
{
    if (ok)
        return;
    fprintf(stderr, "disk output invariant broken: %s\n", what);
    abort();
}

bool isFlag(const QJsonValue& value)
{
    return value.isUndefined() || value.toInt(-1) == 0 || value.toInt(-1) == 1;
}

void checkInventory(const QJsonObject& inventory)
{
    for (auto it = inventory.constBegin(); it != inventory.constEnd(); ++it) {
        check(it.key().startsWith(QLatin1String("/dev/")), "record key outside /dev");
        const QJsonObject record = it.value().toObject();
        for (const char* flag : {"mounted", "system", "raid", "lvm", "zfs", "used"})
            check(isFlag(record.value(QLatin1String(flag))), "flag not 0/1");
        if (record.value(QStringLiteral("system")).toInt() == 1)
            check(record.value(QStringLiteral("mountpoint")).toString() == QLatin1String("/"),
                  "system disk not mounted at /");
    }
}

void checkRaid(const QString& text)
{
    QJsonObject record;
    const QJsonObject inventory{{QStringLiteral("/dev/sda"), QJsonObject{}}};
    if (raidDetailOf(record, text, QStringLiteral("/dev/md0"), &inventory, RaidLookups{})) {
        check(record.value(QStringLiteral("md")).toString() == QLatin1String("/dev/md0"),
              "record of another array");
        for (const char* key : {"members", "spares"}) {
            for (const QJsonValue& row : record.value(QLatin1String(key)).toArray())
                check(row.toObject()
                          .value(QStringLiteral("part"))
                          .toString()
                          .startsWith(QLatin1String("/dev/")),
                      "member outside /dev");
        }
        raidStatusOf(record, false);
        raidFoldOf(QJsonObject{{QStringLiteral("/dev/md0"), record}});
    }
    raidProgressOf(text);
    raidRemodelingOf(text);
    raidTimeOf(text);
    for (const QString& name : mdstatNames(text))
        check(name.startsWith(QLatin1String("/dev/md")), "array outside /dev/md");
    for (const QJsonValue& array : mdstatQuickList(text)) {
        const QJsonArray members = array.toObject().value(QStringLiteral("members")).toArray();
        for (int i = 1; i < members.size(); ++i)
            check(members.at(i - 1).toString() <= members.at(i).toString(), "members unsorted");
    }
}

// An accepted volume name or password reaches a root shell line unquoted.
void checkShellSafe(const QString& text)
{
    check(!text.startsWith(QLatin1Char('-')), "option accepted as a value");
    for (const QChar c : text)
        check(c.unicode() > 0x20 && !QLatin1String("\"'`$;&|<>()*?[]{}~#\\").contains(c),
              "shell character accepted");
}

void checkLvm(const QString& text, const QByteArray& bytes)
{
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        asCapacity(line);
        if (isLvmName(line) || isLvmPassword(line))
            checkShellSafe(line);
    }
    check(peSizeMbOf(text) > 0, "extent size not positive");
    check(vgSizesOf(text, QStringLiteral("vg0")).value(QStringLiteral("free")).toDouble() >= 0,
          "negative free space");
    const QJsonObject mounts = lvMountsOf(text);
    for (auto it = mounts.constBegin(); it != mounts.constEnd(); ++it)
        check(it.key().startsWith(QLatin1String("/mnt/")), "mount outside /mnt");
    QJsonObject record;
    if (lvRecordOf(text, record))
        check(!record.value(QStringLiteral("lv")).toString().isEmpty(), "volume without a name");
    QString vg, lv;
    volumePathOf(text, QStringLiteral("vg0"), QStringLiteral("lv"), &vg);
    vgLvOf(text, vg, lv);
    dmPathOf(text, vg);
    mkfsRunningOf(text, QStringLiteral("/dev/vg0/lv"));
    qint64 size = 0, used = 0, avail = 0;
    dfFiguresOf(text, size, used, avail);
    isLuks2StatusOf(text);
    check(thinSizeFromPool(vgFreeOf(text), 32) > 0, "pool size rounded to nothing");

    // Rewritten tables: every fstab entry line has six non-empty fields.
    const QJsonArray entries = fstabEntriesOf(bytes);
    const QString added = QStringLiteral("/dev/vg0/lv /mnt/vg0/lv xfs defaults 0 0");
    bool dropped = false;
    const QStringList lines =
        fstabAppendLines(entries, text, QStringLiteral("/dev/vg0/lv"), added) +
        fstabRemoveLines(entries, text, QStringLiteral("/mnt/x"), &dropped);
    for (const QString& line : lines) {
        if (line != added && !line.isEmpty() && !line.trimmed().startsWith(QLatin1Char('#')))
            check(line.split(QLatin1Char(' ')).size() == 6 && !line.contains(QLatin1String("  ")),
                  "fstab line without six fields");
    }
    const QString own = QStringLiteral("vg0-lv_crypt /dev/vg0/lv /key");
    const QStringList crypttab = crypttabAppendLines(text, QStringLiteral("/dev/vg0/lv"), own);
    // The line comes last, followed only by the empty element of the final newline.
    check(crypttab.count(own) == 1 && crypttab.size() >= 2 &&
              crypttab.at(crypttab.size() - 2) == own && crypttab.last().isEmpty(),
          "crypttab line not once, last");
    crypttabRemoveLines(text, QStringLiteral("/dev/vg0/lv"), &dropped);
}

// A pool of the detailed report is in the summaries too; its records are all
// mounted under /mnt/.
void checkZfs(const QString& text)
{
    const QJsonObject summaries = zfsAllistOf(text);
    for (auto it = summaries.constBegin(); it != summaries.constEnd(); ++it) {
        const QJsonObject summary = it.value().toObject();
        const double avail = summary.value(QStringLiteral("free")).toDouble(-1);
        check(summary.value(QStringLiteral("vg")).toString() == it.key(),
              "summary of another pool");
        check(avail >= 0 && summary.value(QStringLiteral("size")).toDouble() >= avail,
              "pool free beyond its size");
    }
    const QJsonObject pools = zfsAlloadOf(text);
    for (auto it = pools.constBegin(); it != pools.constEnd(); ++it) {
        check(summaries.contains(it.key()), "pool missing from the summaries");
        const QJsonObject pool = it.value().toObject();
        QJsonArray records{pool};
        for (const QJsonValue& record : pool.value(QStringLiteral("lvs")).toObject())
            records.append(record);
        for (const QJsonValue& record : records)
            check(record.toObject()
                      .value(QStringLiteral("mntpath"))
                      .toString()
                      .startsWith(QLatin1String("/mnt/")),
                  "dataset outside /mnt");
    }
}

// The extents of a cache: whole extents of the request, the metadata a
// twentieth rounded up to extents, the data the rest less the metadata and
// its spare copy.
void checkCacheExtents(int availMb, int sizeMb, int peMb)
{
    const CacheExtents extents = cacheExtentsOf(availMb, sizeMb, peMb);
    check(extents.reduceK >= 0, "negative placeholder rest");
    if (availMb <= 0 || sizeMb <= 0 || peMb <= 0)
        return;
    const qint64 pe = peMb;
    const qint64 peK = pe * 1024;
    const qint64 alignedK = extents.alignedMb * 1024;
    check(extents.alignedMb >= 0 && extents.alignedMb <= sizeMb && extents.alignedMb % pe == 0 &&
              sizeMb - extents.alignedMb < pe,
          "cache not the whole extents of its size");
    check(extents.reduceK == qMax<qint64>(availMb - extents.alignedMb, 0) * 1024,
          "placeholder rest not what the cache leaves");
    check(extents.metaK % peK == 0 && extents.metaK * 20 >= alignedK &&
              (extents.metaK - peK) * 20 < alignedK,
          "metadata not a twentieth rounded up to extents");
    check(extents.dataK + 2 * extents.metaK == alignedK, "data and metadata beyond the cache");
    // The smallest cache the code accepts is three extents.
    if (sizeMb >= 3 * pe)
        check(extents.dataK > 0, "cache without data");
}

// "report"[0]."lv" of an lvs JSON report, read as the cache readers do.
QJsonArray reportLvsOf(const QString& text)
{
    return QJsonDocument::fromJson(text.toUtf8())
        .object()
        .value(QStringLiteral("report"))
        .toArray()
        .at(0)
        .toObject()
        .value(QStringLiteral("lv"))
        .toArray();
}

void checkCache(const QString& text, const uint8_t* data, size_t size, const QJsonObject& loads)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& line : lines + QStringList{text}) {
        check(cachePlaceholderMbOf(line) >= 0, "negative placeholder size");
        if (isCacheMode(line))
            checkShellSafe(line);
        const QString bracketed = bracketedNameOf(line);
        if (!bracketed.isEmpty())
            check(QLatin1Char('[') + bracketed + QLatin1Char(']') == line.trimmed(),
                  "bracketed name not the whole output");
        const QString device = deviceBeforeParenOf(line);
        check(!device.contains(QLatin1Char('(')) && line.trimmed().startsWith(device),
              "device not the text before its extent");
    }

    int figures[3] = {};
    if (size >= sizeof(figures)) {
        memcpy(figures, data, sizeof(figures));
        checkCacheExtents(figures[0], figures[1], figures[2]);
    }
    const int availMb = cachePlaceholderMbOf(lines.first());
    checkCacheExtents(availMb, availMb / 2, peSizeMbOf(text));

    const QStringList disks = cacheDisksOf(text);
    check(QStringList(disks).removeDuplicates() == 0, "cache disk listed twice");
    for (const QString& disk : disks)
        check(!disk.contains(QLatin1Char('(')), "cache disk with its extent");

    for (auto it = loads.constBegin(); it != loads.constEnd(); ++it) {
        const QJsonObject load = it.value().toObject();
        const double used = load.value(QStringLiteral("size")).toDouble();
        const double free = load.value(QStringLiteral("free")).toDouble();
        check(load.value(QStringLiteral("dev")).toString() == it.key(), "load of another disk");
        // A disk's figures are those of one line: bound or placeholder.
        check((used == 0 || free == 0) &&
                  load.value(QStringLiteral("capacity")).toDouble() == used + free,
              "cache disk capacity not its bound and free space");
    }

    const QJsonArray lvs = reportLvsOf(text);
    // Sums of figures below 2^53 stay exact through the doubles of JSON.
    double magnitude = 0;
    for (const QJsonValue& lv : lvs)
        magnitude += std::fabs(
            double(asCapacity(lv.toObject().value(QStringLiteral("lv_size")).toString())));
    const QJsonObject groups = cacheGroupsOf(text);
    for (const QJsonValue& value : groups) {
        const QJsonObject group = value.toObject();
        const double capacity = group.value(QStringLiteral("capacity")).toDouble();
        check(capacity > 0, "group listed without cache space");
        if (magnitude < 9007199254740992.0)
            check(capacity == group.value(QStringLiteral("size")).toDouble() +
                                  group.value(QStringLiteral("free")).toDouble(),
                  "cache space not bound plus free");
    }
    // The chain from the first cached volume: volume, pool, pool data, disk.
    for (const QJsonValue& lv : lvs) {
        if (!lv.toObject().value(QStringLiteral("pool_lv")).toString().isEmpty()) {
            cacheDevOf(text, lv.toObject().value(QStringLiteral("lv_name")).toString());
            break;
        }
    }

    const QJsonObject detail = cacheDetailOf(text);
    check(!detail.contains(QStringLiteral("lv_size")) &&
              !detail.contains(QStringLiteral("lv_metadata_size")) &&
              (detail.isEmpty() || detail.contains(QStringLiteral("size"))),
          "cache detail without its total size");
}

// df -k figures are clamped to what a KiB count can hold in bytes.
void checkDfFigures(const QJsonObject& entry)
{
    for (const char* key : {"capacity", "size", "free"})
        check(entry.value(QLatin1String(key)).toDouble(-1) >= 0, "negative df figure");
}

// The lines of a table file as fixlost reads them, and those of them left out
// of kept; kept must be the lines in order with some left out.
QStringList droppedLines(const QString& table, const QStringList& kept, bool dropped)
{
    QStringList lines = table.split(QLatin1Char('\n'));
    if (lines.last().isEmpty())
        lines.removeLast();
    QStringList left;
    int next = 0;
    // Equal lines share their fate, so the first match is the kept one.
    for (const QString& line : lines) {
        if (next < kept.size() && kept.at(next) == line)
            ++next;
        else
            left << line;
    }
    check(next == kept.size(), "table rewrite adds or reorders lines");
    check(dropped == !left.isEmpty(), "dropped flag wrong");
    return left;
}

// The first blank-separated field of line, blanks as the readers' "\\s+";
// read in place, as the crypttab checks run over every line.
QStringRef firstFieldOf(const QString& line)
{
    const auto isBlank = [](QChar c) {
        return c == QLatin1Char(' ') || (c.unicode() >= 9 && c.unicode() <= 13);
    };
    int begin = 0;
    while (begin < line.size() && isBlank(line.at(begin)))
        ++begin;
    int end = begin;
    while (end < line.size() && !isBlank(line.at(end)))
        ++end;
    return line.midRef(begin, end - begin);
}

void checkCrypttab(const QString& text, const QStringList& mappings)
{
    bool dropped = false;
    const QStringList kept = crypttabCleanupOf(text, mappings, &dropped);
    for (const QString& line : droppedLines(text, kept, dropped)) {
        const QStringRef field = firstFieldOf(line);
        check(!field.isEmpty() && !line.trimmed().startsWith(QLatin1Char('#')),
              "crypttab comment or blank line dropped");
        for (const QString& mapping : mappings)
            check(field != mapping, "crypttab line dropped that fstab still names");
    }
}

void checkFixlost(const QString& text, const QStringList& mounted)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    const FstabCleanup fstab = fstabCleanupOf(text, mounted);
    for (const QString& line : droppedLines(text, fstab.kept, fstab.dropped)) {
        const QStringList fields = line.split(blanks, Qt::SkipEmptyParts);
        check(!line.trimmed().startsWith(QLatin1Char('#')) && fields.size() >= 2 &&
                  fields.at(1).startsWith(QLatin1String("/mnt/")) &&
                  !mounted.contains(fields.at(1)),
              "fstab line dropped that is no lost mount");
    }
    for (const QString& mapping : fstab.mappings)
        check(mapping.endsWith(QLatin1String("_crypt")) && !mapping.contains(QLatin1Char('/')),
              "mapping not a _crypt name");
}

void checkVolumeInventory(const QString& text, const QByteArray& bytes, const QJsonObject& disks,
                          const QJsonObject& loads)
{
    const QJsonObject summaries = vgSummariesOf(text);
    for (auto it = summaries.constBegin(); it != summaries.constEnd(); ++it)
        check(!it.key().isEmpty() &&
                  it.value().toObject().value(QStringLiteral("vg")).toString() == it.key(),
              "summary of another group");
    const QJsonObject groups = volumeListOf(text);
    for (auto group = groups.constBegin(); group != groups.constEnd(); ++group) {
        const QJsonObject volumes = group.value().toObject();
        for (auto it = volumes.constBegin(); it != volumes.constEnd(); ++it) {
            const QJsonObject volume = it.value().toObject();
            check(!it.key().isEmpty() && !it.key().endsWith(QLatin1String("_unused_cache")) &&
                      volume.value(QStringLiteral("lv")).toString() == it.key() &&
                      volume.value(QStringLiteral("vg")).toString() == group.key(),
                  "volume listed under another name or a placeholder");
        }
    }
    for (const InventoryVolume& volume : inventoryVolumesOf(text)) {
        check(!volume.lv.isEmpty() && !volume.lv.endsWith(QLatin1String("_unused_cache")),
              "inventory volume without a name or a placeholder");
        const QJsonObject record = inventoryRecordOf(volume, false);
        const QString fstype = record.value(QStringLiteral("fstype")).toString();
        check(fstype.isEmpty() || volume.tags.contains(fstype), "file system not among the tags");
    }

    const QJsonObject all = allMountsOf(text);
    for (auto it = all.constBegin(); it != all.constEnd(); ++it) {
        checkDfFigures(it.value().toObject());
        check(it.value().toObject().value(QStringLiteral("mntpath")).toString() == it.key() &&
                  (it.key() == QLatin1String("/") || it.key().startsWith(QLatin1String("/mnt/"))),
              "mount of another target");
    }
    const QJsonObject devs = devMountsOf(text);
    for (auto it = devs.constBegin(); it != devs.constEnd(); ++it) {
        checkDfFigures(it.value().toObject());
        check(it.value().toObject().value(QStringLiteral("dev")).toString() == it.key() &&
                  it.key().startsWith(QLatin1String("/dev/")),
              "mount of another source");
    }
    const QJsonObject byDev = mountsByDevOf(text, true);
    for (auto it = byDev.constBegin(); it != byDev.constEnd(); ++it) {
        checkDfFigures(it.value().toObject());
        check(devs.contains(it.key()) && it.value()
                                             .toObject()
                                             .value(QStringLiteral("mntpath"))
                                             .toString()
                                             .startsWith(QLatin1String("/mnt/")),
              "device mount outside /mnt");
    }
    const QStringList mounted = dfColumnOf(text);
    for (const QString& value : mounted)
        check(!value.isEmpty() && value == value.trimmed(), "df column value untrimmed");
    lvFreeOf(text);
    blkidUuidOf(text);
    const QJsonObject blkid = blkidExportOf(text);
    for (auto it = blkid.constBegin(); it != blkid.constEnd(); ++it)
        check(!it.key().isEmpty() && !it.key().contains(QLatin1Char('=')) &&
                  it.key() != QLatin1String("DEVNAME"),
              "blkid key wrong");

    // A group's disks: the pvs names looked up in the disk inventory, with
    // the figures of the cache disk listing.
    const QStringList paths = pvNamesOf(bytes) << QStringLiteral("/dev/sda");
    for (const QString& path : paths) {
        const QJsonObject record = diskRecordOf(disks, path);
        check(record.isEmpty() || disks.value(path).toObject() == record ||
                  record.value(QStringLiteral("dev")).toString() == path,
              "record of another disk");
        const QJsonObject disk = withCacheFigures(vgDiskOf(path, record, QStringLiteral("cache")),
                                                  loads.value(path).toObject());
        check(disk.value(QStringLiteral("capacity")).toDouble() ==
                  disk.value(QStringLiteral("size")).toDouble() +
                      disk.value(QStringLiteral("free")).toDouble(),
              "cache disk figures do not add up");
    }
    const QList<QJsonObject> unused = unusedDisksOf(disks);
    for (const QJsonObject& record : unused)
        check(record.value(QStringLiteral("system")).toInt() != 1, "system disk offered");

    checkFixlost(text, mounted);
    // Not the mappings of the fstab pass: in one text the crypttab lines name
    // themselves there, and none would ever be dropped.
    checkCrypttab(text, {QStringLiteral("vg0-lv_crypt")});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    const QStringList members = mdstatMembers(text);
    for (const QString& member : members)
        check(member.startsWith(QLatin1String("/dev/")), "member outside /dev");
    const QJsonObject lsblk = lsblkJson(text);
    const QJsonObject inventory = inventoryOf(lsblk, members, pvsMembers(text), zpoolMembers(text));
    checkInventory(inventory);
    checkInventory(inventory2Of(lsblk));
    const QJsonArray listed = alloadOf(lsblk, inventory, true, true, true, true);
    check(listed.size() <= lsblk.value(QStringLiteral("blockdevices")).toArray().size(),
          "more records than devices");

    checkRaid(text);
    checkLvm(text, QByteArray(reinterpret_cast<const char*>(data), int(size)));
    checkZfs(text);
    const QJsonObject cacheLoads = cacheDisksLoadOf(text);
    checkCache(text, data, size, cacheLoads);
    checkVolumeInventory(text, QByteArray(reinterpret_cast<const char*>(data), int(size)),
                         inventory, cacheLoads);

    QString serial;
    hdparmSerial(serial, text);
    partedFstype(text);
    fdiskLists(text, QStringLiteral("/dev/sda"));
    diskstatsDevices(text);
    partitionsOf(text);
    parentDiskOf(text, QStringLiteral("/dev/sda1"));
    QString mountpoint;
    mtabMountOf(text, QStringLiteral("/dev/sda1"), &mountpoint);

    QJsonArray rows;
    smartRowsOf(rows, lsblk, false);
    smartRowsOf(rows, lsblk, true);
    for (const QJsonValue& row : rows) {
        const int status = row.toObject().value(QStringLiteral("status")).toInt(2);
        check(status >= -1 && status <= 1, "verdict out of range");
    }
    double celsius = 0;
    temperatureOf(celsius, text);
    QJsonObject speeds;
    if (totalSpeedOf(speeds, text))
        check(speeds.contains(QStringLiteral("read_speed")), "speed without read_speed");
    return 0;
}
