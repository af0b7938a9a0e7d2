// ZFS pools and datasets in the shapes of the LVM reports.

#include "vx/vxzfs.h"

#include "lnx2/lnx2utils.h"

#include <QStringList>

#include <limits>

namespace {

const QString kListing =
    QStringLiteral("/usr/bin/sudo zfs list -Hpro name,available,used,mountpoint,mounted");

// One line of the listing: name, available, used, mount point, mounted.
struct ZfsLine
{
    QString name;
    qint64 available = 0;
    qint64 used = 0;
    QString mountpoint;
    bool mounted = false;

    bool isPool() const { return !name.contains(QLatin1Char('/')); }
    bool underMnt() const { return mounted && mountpoint.startsWith(QLatin1String("/mnt/")); }
};

// "-p" prints exact bytes; anything else ("-" of a snapshot, garbage) is 0.
qint64 bytesOf(const QString& text)
{
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok && value > 0 ? value : 0;
}

// Both operands are non-negative; the tool's figures never come near the
// limit, a damaged listing must not overflow.
qint64 plus(qint64 a, qint64 b)
{
    const qint64 max = std::numeric_limits<qint64>::max();
    return a > max - b ? max : a + b;
}

// The usable lines, in output order: more than four fields once tabs are
// blanks (a mount point holding a blank shifts the fields of its line).
QList<ZfsLine> linesOf(const QString& out)
{
    QList<ZfsLine> lines;
    for (QString text : out.split(QLatin1Char('\n'))) {
        text.replace(QLatin1Char('\t'), QLatin1Char(' '));
        const QStringList fields = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (fields.size() <= 4)
            continue;
        ZfsLine line;
        line.name = fields.at(0);
        line.available = bytesOf(fields.at(1));
        line.used = bytesOf(fields.at(2));
        line.mountpoint = fields.at(3);
        line.mounted = fields.at(4) == QLatin1String("yes");
        lines.append(line);
    }
    return lines;
}

QJsonObject recordOf(const ZfsLine& line)
{
    return {{QStringLiteral("name"), line.name},
            {QStringLiteral("capacity"), plus(line.available, line.used)},
            {QStringLiteral("available"), line.available},
            {QStringLiteral("used"), line.used},
            {QStringLiteral("mntpath"), line.mountpoint}};
}

// The listing, or an empty text when zfs is missing (Debian ships no zfs
// tools) or failed: both reports are then empty.
QString listing()
{
    QString out;
    return cmdExec(kListing, out, 9999) ? out : QString();
}

} // namespace

QJsonObject zfsAlloadOf(const QString& out)
{
    QJsonObject pools;
    // One collection for the whole walk, never emptied: a pool's "lvs" also
    // holds the datasets of the pools listed before it. Kept as it is.
    QJsonObject datasets;
    QJsonObject open;
    const auto finish = [&]() {
        if (open.isEmpty())
            return;
        open.insert(QStringLiteral("lvs"), datasets);
        pools.insert(open.value(QStringLiteral("name")).toString(), open);
    };
    for (const ZfsLine& line : linesOf(out)) {
        if (!line.underMnt())
            continue;
        if (line.isPool()) {
            finish();
            open = recordOf(line);
        } else {
            datasets.insert(line.name, recordOf(line));
        }
    }
    finish();
    return pools;
}

QJsonObject zfsAllistOf(const QString& out)
{
    const QList<ZfsLine> lines = linesOf(out);
    QJsonObject pools;
    for (const ZfsLine& pool : lines) {
        if (!pool.mounted || !pool.isPool())
            continue;
        // The root's own line is not summed, and its mount point is not
        // looked at: only the datasets under /mnt/ count.
        const QString prefix = pool.name + QLatin1Char('/');
        qint64 available = 0;
        qint64 used = 0;
        for (const ZfsLine& line : lines) {
            if (line.underMnt() && line.name.startsWith(prefix)) {
                available = plus(available, line.available);
                used = plus(used, line.used);
            }
        }
        pools.insert(pool.name, QJsonObject{{QStringLiteral("vg"), pool.name},
                                            {QStringLiteral("size"), plus(used, available)},
                                            {QStringLiteral("free"), available}});
    }
    return pools;
}

QJsonObject VXZfs::vgAlload()
{
    return zfsAlloadOf(listing());
}

QJsonObject VXZfs::vgAllist()
{
    return zfsAllistOf(listing());
}
