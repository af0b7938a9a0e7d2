#include "vx/vxlvminventoryparse.h"

#include "vx/vxlvmparse.h"

#include "gx2/gx2utils.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

namespace {

const QString kPlaceholderEnd = QStringLiteral("_unused_cache");

// The lines of a table file; the empty element after its final newline is
// not a line (writing it back would add a blank line on every rewrite).
QStringList fileLines(const QString& text)
{
    QStringList lines = outputLinesOf(text);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

bool isComment(const QString& line)
{
    return line.trimmed().startsWith(QLatin1Char('#'));
}

qint64 int64Of(const QString& text)
{
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok ? value : 0;
}

// KiB as df prints them; 0 for what is not a sane count.
qint64 kibBytes(const QString& text)
{
    const qint64 kib = int64Of(text);
    return kib < 0 || kib >= (Q_INT64_C(1) << 53) ? 0 : kib << 10;
}

struct DfMount
{
    QString source;
    QString target;
    QJsonObject figures; // "userate", "capacity", "size" (used), "free"
};

// The "df -k" lines after the header with more than five fields.
QList<DfMount> dfMountsOf(const QString& dfOut)
{
    QList<DfMount> mounts;
    const QStringList lines = outputLinesOf(dfOut);
    for (int i = 1; i < lines.size(); ++i) {
        const QStringList fields = blankFieldsOf(lines.at(i));
        if (fields.size() <= 5)
            continue;
        mounts.append({fields.at(0), fields.at(5),
                       QJsonObject{{QStringLiteral("userate"), fields.at(4)},
                                   {QStringLiteral("capacity"), kibBytes(fields.at(1))},
                                   {QStringLiteral("size"), kibBytes(fields.at(2))},
                                   {QStringLiteral("free"), kibBytes(fields.at(3))}}});
    }
    return mounts;
}

QJsonObject mountEntry(const DfMount& mount)
{
    QJsonObject entry = mount.figures;
    entry.insert(QStringLiteral("dev"), mount.source);
    entry.insert(QStringLiteral("mntpath"), mount.target);
    return entry;
}

QString typeOfAttr(const QString& attr)
{
    if (attr.startsWith(QLatin1Char('-')))
        return QStringLiteral("lv");
    if (attr.startsWith(QLatin1Char('C')))
        return QStringLiteral("lv+cache");
    if (attr.startsWith(QLatin1Char('V')))
        return QStringLiteral("thin");
    return QString();
}

} // namespace

QJsonObject vgSummariesOf(const QString& out)
{
    QJsonObject groups;
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = line.trimmed().split(QLatin1Char(':'), Qt::SkipEmptyParts);
        if (fields.size() != 3)
            continue;
        groups.insert(fields.at(0),
                      QJsonObject{{QStringLiteral("vg"), fields.at(0)},
                                  {QStringLiteral("size"), asCapacity(fields.at(1))},
                                  {QStringLiteral("free"), asCapacity(fields.at(2))}});
    }
    return groups;
}

QJsonObject volumeListOf(const QString& out)
{
    QJsonObject groups;
    for (const QString& line : outputLinesOf(out)) {
        if (line.trimmed().isEmpty())
            continue;
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() <= 4 || fields.at(0).isEmpty() || fields.at(0).endsWith(kPlaceholderEnd))
            continue;
        QJsonObject volumes = groups.value(fields.at(1)).toObject();
        volumes.insert(fields.at(0),
                       QJsonObject{{QStringLiteral("vg"), fields.at(1)},
                                   {QStringLiteral("lv"), fields.at(0)},
                                   {QStringLiteral("lvpath"), fields.at(2)},
                                   {QStringLiteral("dmpath"), fields.at(3)},
                                   {QStringLiteral("capacity"), asCapacity(fields.at(4))}});
        groups.insert(fields.at(1), volumes);
    }
    return groups;
}

QList<InventoryVolume> inventoryVolumesOf(const QString& out)
{
    QList<InventoryVolume> volumes;
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() <= 6 || fields.at(1).isEmpty() || fields.at(1).endsWith(kPlaceholderEnd))
            continue;
        InventoryVolume volume;
        volume.vg = fields.at(0);
        volume.lv = fields.at(1);
        volume.lvPath = fields.at(2);
        volume.dmPath = fields.at(3);
        volume.capacity = asCapacity(fields.at(4));
        volume.attr = fields.at(5);
        // A tag may itself hold ":", so the tag list is the rest of the line.
        volume.tags =
            fields.mid(6).join(QLatin1Char(':')).split(QLatin1Char(','), Qt::SkipEmptyParts);
        volumes.append(volume);
    }
    return volumes;
}

QString tagFstypeOf(const QStringList& tags)
{
    for (const char* known : {"lun", "xfs", "btrfs", "ext4", "ext3", "ntfs"}) {
        if (tags.contains(QLatin1String(known)))
            return QLatin1String(known);
    }
    return QString();
}

QJsonObject inventoryRecordOf(const InventoryVolume& volume, bool extensible)
{
    return QJsonObject{{QStringLiteral("extensible"), extensible ? 1 : 0},
                       {QStringLiteral("vg"), volume.vg},
                       {QStringLiteral("lv"), volume.lv},
                       {QStringLiteral("capacity"), volume.capacity},
                       {QStringLiteral("dmpath"), volume.dmPath},
                       {QStringLiteral("lvpath"), volume.lvPath},
                       {QStringLiteral("attr"), volume.attr},
                       {QStringLiteral("fstype"), tagFstypeOf(volume.tags)},
                       {QStringLiteral("type"), typeOfAttr(volume.attr)},
                       {QStringLiteral("mounted"), 0}};
}

QJsonObject allMountsOf(const QString& dfOut)
{
    QJsonObject mounts;
    for (const DfMount& mount : dfMountsOf(dfOut)) {
        if (mount.target == QLatin1String("/") ||
            (mount.target.startsWith(QLatin1String("/mnt/")) &&
             mount.source.contains(QLatin1Char('/'))))
            mounts.insert(mount.target, mountEntry(mount));
    }
    return mounts;
}

QJsonObject devMountsOf(const QString& dfOut)
{
    QJsonObject mounts;
    for (const DfMount& mount : dfMountsOf(dfOut)) {
        if (mount.source.startsWith(QLatin1String("/dev/")))
            mounts.insert(mount.source, mountEntry(mount));
    }
    return mounts;
}

QJsonObject mountsByDevOf(const QString& dfOut, bool withMountPath)
{
    QJsonObject mounts;
    for (const DfMount& mount : dfMountsOf(dfOut)) {
        if (!mount.source.startsWith(QLatin1String("/dev/")) ||
            !mount.target.startsWith(QLatin1String("/mnt/")))
            continue;
        QJsonObject entry = mount.figures;
        if (withMountPath)
            entry.insert(QStringLiteral("mntpath"), mount.target);
        mounts.insert(mount.source, entry);
    }
    return mounts;
}

QStringList dfColumnOf(const QString& out)
{
    QStringList column;
    const QStringList lines = outputLinesOf(out);
    for (int i = 1; i < lines.size(); ++i) {
        const QString value = lines.at(i).trimmed();
        if (!value.isEmpty())
            column.append(value);
    }
    return column;
}

QJsonObject lvFreeOf(const QString& out)
{
    const QStringList lines = outputLinesOf(out);
    const QStringList fields = lines.size() > 1 ? blankFieldsOf(lines.at(1)) : QStringList();
    if (fields.size() < 6)
        return QJsonObject();
    QString capacity = fields.at(4);
    capacity.chop(1);
    return QJsonObject{{QStringLiteral("lvsize"), int64Of(fields.at(1))},
                       {QStringLiteral("lvused"), int64Of(fields.at(2))},
                       {QStringLiteral("lvfree"), int64Of(fields.at(3))},
                       {QStringLiteral("capacity"), capacity},
                       {QStringLiteral("mntpath"), fields.at(5)}};
}

QJsonObject blkidExportOf(const QString& out)
{
    QJsonObject values;
    for (const QString& line : outputLinesOf(out)) {
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals < 1)
            continue;
        const QString key = line.left(equals);
        if (key != QLatin1String("DEVNAME"))
            values.insert(key, line.mid(equals + 1));
    }
    return values;
}

QString blkidUuidOf(const QString& out)
{
    for (const QString& line : outputLinesOf(out)) {
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals > 0 && line.left(equals) == QLatin1String("UUID"))
            return line.mid(equals + 1).trimmed();
    }
    return QString();
}

QStringList pvNamesOf(const QByteArray& json)
{
    const QJsonArray reports =
        QJsonDocument::fromJson(json).object().value(QStringLiteral("report")).toArray();
    QStringList names;
    for (const QJsonValue& pv : reports.first().toObject().value(QStringLiteral("pv")).toArray()) {
        const QString name = pv.toObject().value(QStringLiteral("pv_name")).toString().trimmed();
        if (!name.isEmpty())
            names.append(name);
    }
    return names;
}

QJsonObject diskRecordOf(const QJsonObject& inventory, const QString& path)
{
    if (inventory.contains(path))
        return inventory.value(path).toObject();
    for (const QJsonValue& value : inventory) {
        const QJsonObject record = value.toObject();
        if (record.value(QStringLiteral("dev")).toString() == path)
            return record;
    }
    return QJsonObject();
}

QJsonObject vgDiskOf(const QString& dev, const QJsonObject& record, const QString& role)
{
    const QString tran = toString(record.value(QStringLiteral("tran")));
    const qint64 size = toInt64(record.value(QStringLiteral("size")));
    return QJsonObject{{QStringLiteral("dev"), dev},
                       {QStringLiteral("used"), record.value(QStringLiteral("used")).toInt()},
                       {QStringLiteral("tran"), tran},
                       {QStringLiteral("model"), toString(record.value(QStringLiteral("model")))},
                       {QStringLiteral("capacity"), size},
                       {QStringLiteral("devsize"), size},
                       {QStringLiteral("device"), dev},
                       {QStringLiteral("device//"), QStringLiteral("deprecated: -> dev")},
                       {QStringLiteral("type"), tran},
                       {QStringLiteral("type//"), QStringLiteral("deprecated: -> tran")},
                       {QStringLiteral("role"), role},
                       {QStringLiteral("role//"), QStringLiteral("deprecated: -> cache")}};
}

QJsonObject withCacheFigures(QJsonObject disk, const QJsonObject& figures)
{
    for (const char* key : {"capacity", "size", "free"})
        disk.insert(QLatin1String(key), toInt64(figures.value(QLatin1String(key))));
    return disk;
}

QList<QJsonObject> unusedDisksOf(const QJsonObject& inventory)
{
    QList<QJsonObject> disks;
    for (const QJsonValue& value : inventory) {
        const QJsonObject record = value.toObject();
        if (record.value(QStringLiteral("used")).toInt() == 0 &&
            record.value(QStringLiteral("system")).toInt() == 0)
            disks.append(record);
    }
    return disks;
}

FstabCleanup fstabCleanupOf(const QString& fstab, const QStringList& mounted)
{
    FstabCleanup cleanup;
    for (const QString& line : fileLines(fstab)) {
        const QStringList fields = blankFieldsOf(line);
        if (isComment(line) || fields.size() < 2) {
            cleanup.kept.append(line);
            continue;
        }
        // Noted before the line's own fate is known: the mapping of a dropped
        // line keeps its crypttab line.
        if (fields.at(0).endsWith(QLatin1String("_crypt")))
            cleanup.mappings.append(fields.at(0).section(QLatin1Char('/'), -1));
        if (fields.at(1).startsWith(QLatin1String("/mnt/")) && !mounted.contains(fields.at(1)))
            cleanup.dropped = true;
        else
            cleanup.kept.append(line);
    }
    return cleanup;
}

QStringList crypttabCleanupOf(const QString& crypttab, const QStringList& mappings, bool* dropped)
{
    QStringList kept;
    *dropped = false;
    for (const QString& line : fileLines(crypttab)) {
        const QStringList fields = blankFieldsOf(line);
        if (isComment(line) || fields.isEmpty() || mappings.contains(fields.at(0)))
            kept.append(line);
        else
            *dropped = true;
    }
    return kept;
}
