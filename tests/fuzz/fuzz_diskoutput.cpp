// libFuzzer target for the readers of disk tool output (lsblk JSON,
// /proc/mdstat, pvs, parted, hdparm, fdisk, smartctl, iotop): a tool that prints something
// unexpected must give an empty or consistent result, never a crash.

#include "vx/vxdiskparse.h"
#include "vx/vxhealthparse.h"

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
