#include "vx/vxdiskparse.h"

#include "gx2/gx2utils.h"

namespace {

// lsblk prints null for an empty column: "" for texts, 0 for numbers.
QString text(const QJsonObject& entry, const char* key)
{
    return toString(entry.value(QLatin1String(key)));
}

qint64 number(const QJsonObject& entry, const char* key)
{
    return toInt64(entry.value(QLatin1String(key)));
}

QJsonArray devicesOf(const QJsonObject& lsblk)
{
    return lsblk.value(QStringLiteral("blockdevices")).toArray();
}

QJsonObject baseRecord(const QJsonObject& entry)
{
    QJsonObject record;
    record.insert(QStringLiteral("name"), text(entry, "name"));
    record.insert(QStringLiteral("dev"), text(entry, "path"));
    record.insert(QStringLiteral("type"), text(entry, "type"));
    record.insert(QStringLiteral("size"), number(entry, "size"));
    record.insert(QStringLiteral("capacity"), number(entry, "size"));
    record.insert(QStringLiteral("state"), text(entry, "state"));
    record.insert(QStringLiteral("tran"), text(entry, "tran"));
    record.insert(QStringLiteral("model"), text(entry, "model"));
    record.insert(QStringLiteral("vendor"), text(entry, "vendor"));
    return record;
}

void clearFlags(QJsonObject& record)
{
    for (const char* flag : {"mounted", "raid", "lvm", "zfs", "used"})
        record.insert(QLatin1String(flag), 0);
}

struct Members
{
    const QStringList& raid;
    const QStringList& lvm;
    const QStringList& zfs;
};

// What one device (the disk itself or one of its partitions) adds to the
// disk's record. A member signature alone does not count: only a device
// that a running array, a volume group or a pool lists is in use.
void applyUsage(QJsonObject& record, const QJsonObject& entry, const Members& members)
{
    const QString path = text(entry, "path");
    const QString mountpoint = text(entry, "mountpoint");
    if (!mountpoint.isEmpty()) {
        record.insert(QStringLiteral("mounted"), 1);
        if (mountpoint == QLatin1String("/")) {
            record.insert(QStringLiteral("system"), 1);
            record.insert(QStringLiteral("mountpoint"), mountpoint);
        } else if (!record.contains(QStringLiteral("mountpoint"))) {
            record.insert(QStringLiteral("mountpoint"), mountpoint);
        }
    }
    const QString fstype = text(entry, "fstype");
    const char* flag = nullptr;
    if (fstype == QLatin1String("linux_raid_member") ||
        text(entry, "parttypename") == QLatin1String("Linux RAID")) {
        flag = members.raid.contains(path) ? "raid" : nullptr;
    } else if (fstype == QLatin1String("LVM2_member")) {
        flag = members.lvm.contains(path) ? "lvm" : nullptr;
    } else if (fstype == QLatin1String("zfs_member")) {
        flag = members.zfs.contains(path) ? "zfs" : nullptr;
    }
    if (flag)
        record.insert(QLatin1String(flag), 1);
    if (flag || !mountpoint.isEmpty())
        record.insert(QStringLiteral("used"), 1);
}

QJsonObject arrayRecord(const QJsonObject& entry)
{
    QJsonObject record = baseRecord(entry);
    const QString digits = text(entry, "type").mid(4);
    record.insert(QStringLiteral("md"), text(entry, "path"));
    record.insert(QStringLiteral("level"), digits.toInt());
    record.insert(QStringLiteral("model"), QStringLiteral("RAID-") + digits);
    clearFlags(record);
    return record;
}

QJsonObject keyedByPath(const QHash<QString, QJsonObject>& records)
{
    QJsonObject result;
    for (auto it = records.cbegin(); it != records.cend(); ++it)
        result.insert(QStringLiteral("/dev/") + it.key(), it.value());
    return result;
}

void markSecond(QJsonObject& record, int kind, const char* flag)
{
    record.insert(QStringLiteral("kind"), kind);
    record.insert(QLatin1String(flag), 1);
    record.insert(QStringLiteral("used"), 1);
}

// allist2 looks at a partition's own signature and mount only.
void applySecond(QJsonObject& record, const QJsonObject& entry)
{
    const QString type = text(entry, "type");
    if (type == QLatin1String("lvm")) {
        record.insert(QStringLiteral("lvm"), 1);
        record.insert(QStringLiteral("used"), 1);
        return;
    }
    const QString mountpoint = text(entry, "mountpoint");
    if (!mountpoint.isEmpty()) {
        record.insert(QStringLiteral("mountpoint"), mountpoint);
        markSecond(record, 1, "mounted");
        if (mountpoint == QLatin1String("/"))
            record.insert(QStringLiteral("system"), 1);
    }
    const QString fstype = text(entry, "fstype");
    if (fstype == QLatin1String("LVM2_member"))
        markSecond(record, 2, "lvm");
    else if (fstype == QLatin1String("linux_raid_member"))
        markSecond(record, 3, "raid");
}

bool admitted(const QJsonObject& record, bool withSystem, bool withUsb, bool withUsed,
              bool withCdrom)
{
    if (record.value(QStringLiteral("cdrom")).toInt() == 1)
        return withCdrom;
    if (record.value(QStringLiteral("tran")).toString() == QLatin1String("usb") && !withUsb)
        return false;
    if (record.value(QStringLiteral("system")).toInt() == 1)
        return withSystem;
    return withUsed || record.value(QStringLiteral("used")).toInt() == 0;
}

QJsonObject inventoryRecordOf(const QJsonObject& inventory, const QString& path)
{
    for (auto it = inventory.constBegin(); it != inventory.constEnd(); ++it) {
        const QJsonObject record = it.value().toObject();
        if (it.key() == path || record.value(QStringLiteral("dev")).toString() == path)
            return record;
    }
    return QJsonObject();
}

} // namespace

QJsonObject inventoryOf(const QJsonObject& lsblk, const QStringList& raidMembers,
                        const QStringList& lvmMembers, const QStringList& zfsMembers)
{
    const Members members{raidMembers, lvmMembers, zfsMembers};
    const QJsonArray devices = devicesOf(lsblk);
    QHash<QString, QJsonObject> records;
    // Disks and arrays first: partitions add to their parent's record.
    for (const QJsonValue& value : devices) {
        const QJsonObject entry = value.toObject();
        const QString type = text(entry, "type");
        QJsonObject record;
        if (type == QLatin1String("disk")) {
            record = baseRecord(entry);
            clearFlags(record);
        } else if (type.startsWith(QLatin1String("raid"))) {
            record = arrayRecord(entry);
        } else {
            continue;
        }
        applyUsage(record, entry, members);
        records.insert(text(entry, "name"), record);
    }
    for (const QJsonValue& value : devices) {
        const QJsonObject entry = value.toObject();
        const auto parent = records.find(text(entry, "pkname"));
        if (text(entry, "type") == QLatin1String("part") && parent != records.end())
            applyUsage(*parent, entry, members);
    }
    return keyedByPath(records);
}

QJsonObject inventory2Of(const QJsonObject& lsblk)
{
    const QJsonArray devices = devicesOf(lsblk);
    QHash<QString, QJsonObject> records;
    for (const QJsonValue& value : devices) {
        const QJsonObject entry = value.toObject();
        if (text(entry, "type") != QLatin1String("disk"))
            continue;
        QJsonObject record = baseRecord(entry);
        record.insert(QStringLiteral("hctl"), text(entry, "hctl"));
        record.insert(QStringLiteral("kind"), 0);
        record.insert(QStringLiteral("used"), 0);
        record.insert(QStringLiteral("lvm"), 0);
        records.insert(text(entry, "name"), record);
    }
    for (const QJsonValue& value : devices) {
        const QJsonObject entry = value.toObject();
        const QString type = text(entry, "type");
        const auto parent = records.find(text(entry, "pkname"));
        if ((type == QLatin1String("part") || type == QLatin1String("lvm")) &&
            parent != records.end())
            applySecond(*parent, entry);
    }
    return keyedByPath(records);
}

QJsonArray alloadOf(const QJsonObject& lsblk, const QJsonObject& inventory, bool withSystem,
                    bool withUsb, bool withUsed, bool withCdrom)
{
    QJsonArray list;
    for (const QJsonValue& value : devicesOf(lsblk)) {
        const QJsonObject entry = value.toObject();
        const QString type = text(entry, "type");
        const bool cdrom = type.endsWith(QLatin1String("rom"));
        if (type != QLatin1String("disk") && !cdrom)
            continue;
        const QString path = text(entry, "path");
        const QJsonObject usage = inventoryRecordOf(inventory, path);
        QJsonObject record;
        record.insert(QStringLiteral("path"), path);
        record.insert(QStringLiteral("dev"), path);
        record.insert(QStringLiteral("tran"), text(entry, "tran"));
        record.insert(QStringLiteral("size"), number(entry, "size"));
        record.insert(QStringLiteral("capacity"), number(entry, "size"));
        record.insert(QStringLiteral("model"), text(entry, "model"));
        record.insert(QStringLiteral("serial"), text(entry, "serial"));
        for (const char* flag : {"lvm", "mounted", "system", "used"})
            record.insert(QLatin1String(flag), usage.value(QLatin1String(flag)).toInt());
        record.insert(QStringLiteral("cdrom"), cdrom ? 1 : 0);
        if (admitted(record, withSystem, withUsb, withUsed, withCdrom))
            list.append(record);
    }
    return list;
}
