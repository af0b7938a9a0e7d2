#include "vx/vxlvmcacheparse.h"

#include "gx2/gx2utils.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

#include <climits>
#include <cmath>
#include <limits>

namespace {

const QLatin1String kUnused("_unused_cache");
const QLatin1String kBoundData("_ssd_cache_cpool_cdata]");
const QLatin1String kBoundMeta("_ssd_cache_cpool_cmeta]");
const QLatin1String kUnboundData("_ssd_cache_cdata]");

QStringList blankFields(const QString& line)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    return line.split(blanks, Qt::SkipEmptyParts);
}

// text up to "(" when "(" is found at from or later; text itself otherwise.
QString cutAtParen(const QString& text, int from)
{
    const int paren = text.indexOf(QLatin1Char('('));
    return paren >= from ? text.left(paren) : text;
}

// "report"[0]."lv" of an lvs JSON report.
QJsonArray reportLvs(const QString& json)
{
    const QJsonObject doc = QJsonDocument::fromJson(json.toUtf8()).object();
    return doc.value(QLatin1String("report"))
        .toArray()
        .at(0)
        .toObject()
        .value(QLatin1String("lv"))
        .toArray();
}

// The entry of a JSON report whose key equals value; {} when none.
QJsonObject entryWith(const QJsonArray& lvs, const QString& key, const QString& value)
{
    for (const QJsonValue& lv : lvs) {
        const QJsonObject entry = lv.toObject();
        if (entry.contains(key) && entry.value(key).toString() == value)
            return entry;
    }
    return {};
}

// Figures are kept as JSON doubles; one at the top of the range would not
// convert back.
qint64 int64Value(const QJsonObject& obj, const QString& key)
{
    const double value = obj.value(key).toDouble();
    constexpr double kTop = 9.2e18;
    return value >= kTop    ? std::numeric_limits<qint64>::max()
           : value <= -kTop ? std::numeric_limits<qint64>::min()
                            : qint64(value);
}

} // namespace

QString cachePlaceholderName(const QString& vg, const QString& disk)
{
    return vg + QLatin1Char('_') + disk.section(QLatin1Char('/'), -1) + kUnused;
}

bool isCacheMode(const QString& mode)
{
    if (mode.isEmpty())
        return false;
    for (const QChar c : mode) {
        if (c < QLatin1Char('a') || c > QLatin1Char('z'))
            return false;
    }
    return true;
}

int cachePlaceholderMbOf(const QString& out)
{
    QString number = out.trimmed();
    number.chop(1);
    bool ok = false;
    const double mb = number.toDouble(&ok) + 0.99;
    if (!ok || !(mb >= 0))
        return 0;
    return mb >= double(INT_MAX) ? INT_MAX : int(mb);
}

CacheExtents cacheExtentsOf(int availMb, int sizeMb, int peMb)
{
    const qint64 pe = qMax(peMb, 1);
    CacheExtents extents;
    extents.alignedMb = sizeMb / pe * pe;
    if (extents.alignedMb < availMb)
        extents.reduceK = (availMb - extents.alignedMb) * 1024;
    const double metaExtents = std::ceil(((extents.alignedMb * 1024 / 20.0) / pe) / 1024);
    extents.metaK = qint64(metaExtents) * pe * 1024;
    extents.dataK = extents.alignedMb * 1024 - 2 * extents.metaK;
    return extents;
}

QString bracketedNameOf(const QString& out)
{
    const QString text = out.trimmed();
    if (text.size() < 2 || !text.startsWith(QLatin1Char('[')) || !text.endsWith(QLatin1Char(']')))
        return QString();
    return text.mid(1, text.size() - 2);
}

QString deviceBeforeParenOf(const QString& out)
{
    const QString text = out.trimmed();
    const int paren = text.indexOf(QLatin1Char('('));
    return paren > 0 ? text.left(paren) : QString();
}

QStringList cacheDisksOf(const QString& out)
{
    QStringList disks;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        const QStringList fields = blankFields(line);
        if (fields.isEmpty())
            continue;
        const QString& name = fields.first();
        // A bound pool's data volume is "..._cpool_cdata]" on LVM 2.03.
        if (!name.endsWith(kUnboundData) && !name.endsWith(kBoundData) && !name.endsWith(kUnused))
            continue;
        const QString disk = cutAtParen(fields.last(), 0);
        if (!disks.contains(disk))
            disks << disk;
    }
    return disks;
}

QJsonObject cacheGroupsOf(const QString& json)
{
    QJsonObject groups;
    for (const QJsonValue& value : reportLvs(json)) {
        const QJsonObject lv = value.toObject();
        const QString vg = lv.value(QLatin1String("vg_name")).toString();
        const QString name = lv.value(QLatin1String("lv_name")).toString();
        const qint64 size = asCapacity(lv.value(QLatin1String("lv_size")).toString());
        QJsonObject group = groups.value(vg).toObject();
        qint64 capacity = int64Value(group, QStringLiteral("capacity"));
        qint64 used = int64Value(group, QStringLiteral("size"));
        qint64 free = int64Value(group, QStringLiteral("free"));
        if (name.endsWith(kBoundData) || name.endsWith(kBoundMeta)) {
            capacity = cappedSum(capacity, size);
            used = cappedSum(used, size);
        } else if (name.endsWith(kUnused)) {
            capacity = cappedSum(capacity, size);
            free = cappedSum(free, size);
        }
        if (capacity <= 0)
            continue;
        group.insert(QStringLiteral("capacity"), capacity);
        group.insert(QStringLiteral("size"), used);
        group.insert(QStringLiteral("free"), free);
        groups.insert(vg, group);
    }
    return groups;
}

QJsonObject cacheDisksLoadOf(const QString& out)
{
    QJsonObject disks;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        const QStringList fields = blankFields(line);
        if (fields.size() <= 4)
            continue;
        const QString& name = fields.first();
        const qint64 size = asCapacity(fields.at(3));
        qint64 used = 0;
        qint64 free = 0;
        if (name.endsWith(kBoundData) || name.endsWith(kBoundMeta))
            used = size;
        else if (name.endsWith(kUnused))
            free = size;
        else
            continue;
        const QString dev = cutAtParen(fields.last(), 0);
        // A disk listed again starts over: its last cache line counts.
        QJsonObject entry = disks.value(dev).toObject();
        if (entry.isEmpty())
            entry.insert(QStringLiteral("dev"), dev);
        entry.insert(QStringLiteral("size"), used);
        entry.insert(QStringLiteral("free"), free);
        entry.insert(QStringLiteral("capacity"), double(used) + double(free));
        disks.insert(dev, entry);
    }
    return disks;
}

QString cacheDevOf(const QString& json, const QString& lv)
{
    const QJsonArray lvs = reportLvs(json);
    const QLatin1String name("lv_name");
    const QLatin1String devices("devices");
    const QJsonObject volume = entryWith(lvs, name, lv);
    const QString poolName = volume.value(QLatin1String("pool_lv")).toString();
    if (volume.isEmpty() || poolName.isEmpty())
        return QString();
    const QJsonObject pool = entryWith(lvs, name, poolName);
    if (pool.isEmpty())
        return QString();
    const QString dataName =
        QLatin1Char('[') + cutAtParen(pool.value(devices).toString(), 1) + QLatin1Char(']');
    const QJsonObject data = entryWith(lvs, name, dataName);
    if (data.isEmpty())
        return QString();
    return cutAtParen(data.value(devices).toString(), 1);
}

QJsonObject cacheDetailOf(const QString& json)
{
    QJsonObject detail = reportLvs(json).at(0).toObject();
    if (detail.isEmpty())
        return detail;
    const QLatin1String data("lv_size");
    const QLatin1String meta("lv_metadata_size");
    const qint64 metaSize = asCapacity(detail.value(meta).toString());
    const qint64 size =
        cappedSum(asCapacity(detail.value(data).toString()), cappedSum(metaSize, metaSize));
    detail.remove(data);
    detail.remove(meta);
    detail.insert(QStringLiteral("size"), size);
    return detail;
}
