// libFuzzer target for the readers of disk tool output (lsblk JSON,
// /proc/mdstat, mdadm -D, pvs, parted, hdparm, fdisk, smartctl, iotop, zfs list, and the LVM,
// df, cryptsetup and findmnt outputs of the volume code): a tool that prints something
// unexpected must give an empty or consistent result, never a crash.

#include "vx/vxdiskparse.h"
#include "vx/vxhealthparse.h"
#include "vx/vxlvmlines.h"
#include "vx/vxlvmparse.h"
#include "vx/vxlvmtables.h"
#include "vx/vxraidparse.h"
#include "vx/vxzfs.h"

#include "gx2/gx2utils.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

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
