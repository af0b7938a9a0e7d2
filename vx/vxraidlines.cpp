#include "vx/vxraidlines.h"

#include "vx/vxraid.h"

#include <QRegularExpression>

int raidCheckLevel(int level, int disks, int spares)
{
    bool ok = false;
    switch (level) {
    case 0:
        ok = disks >= 2 && spares == 0;
        break;
    case 1:
        ok = disks >= 2;
        break;
    case 5:
        ok = disks >= 3;
        break;
    case 6:
        ok = disks >= 4;
        break;
    case 10:
        ok = disks >= 4 && disks % 2 == 0;
        break;
    case 50:
        ok = disks >= 6 && disks % 3 == 0;
        break;
    case 60:
        ok = disks >= 8 && disks % 4 == 0;
        break;
    default:
        break;
    }
    return ok ? kRaidOk : kRaidInvalid;
}

bool raidMigrationAllowed(int from, int to)
{
    static const int allowed[][2] = {{0, 5}, {0, 10}, {1, 0}, {1, 5}, {4, 0},
                                     {5, 0}, {5, 6},  {6, 5}, {10, 0}};
    for (const auto& pair : allowed) {
        if (pair[0] == from && pair[1] == to)
            return true;
    }
    return false;
}

QString raidPartitionOf(const QString& disk)
{
    if (!disk.isEmpty() && disk.back().isDigit())
        return disk + QStringLiteral("p1");
    return disk + QStringLiteral("1");
}

QString raidFreePath(const QStringList& inUse, const QStringList& taken)
{
    for (int n = 0; n <= 255; ++n) {
        const QString path = QStringLiteral("/dev/md") + QString::number(n);
        if (!inUse.contains(path) && !taken.contains(path))
            return path;
    }
    return QString();
}

bool isRaidPath(const QString& md)
{
    // Anchored: "$" alone would let a final newline through.
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("/dev/md(?:[0-9]+|/[A-Za-z0-9._:-]+)")));
    if (!pattern.match(md).hasMatch())
        return false;
    // "." and ".." would name directories, not arrays.
    return !md.endsWith(QStringLiteral("/.")) && !md.endsWith(QStringLiteral("/.."));
}

QString raidCreateLine(const QString& md, int level, int chunk, QStringList parts,
                       QStringList spares)
{
    parts.sort();
    spares.sort();
    QString line = QStringLiteral("/usr/bin/sudo /sbin/mdadm -CR ") + md + QStringLiteral(" -l ") +
                   QString::number(level) + QStringLiteral(" -n ") + QString::number(parts.size());
    // mdadm refuses a chunk for raid1 and a chunk of 0.
    if (level != 1 && chunk >= 4)
        line += QStringLiteral(" -c ") + QString::number(chunk);
    line += QStringLiteral(" ") + parts.join(QLatin1Char(' '));
    if (!spares.isEmpty()) {
        line += QStringLiteral(" -x ") + QString::number(spares.size()) + QStringLiteral(" ") +
                spares.join(QLatin1Char(' '));
    }
    return line;
}

QString raidTopLine(const QString& md, const QStringList& subArrays)
{
    return QStringLiteral("/usr/bin/sudo /sbin/mdadm -CR ") + md + QStringLiteral(" -l 0 -n ") +
           QString::number(subArrays.size()) + QStringLiteral(" ") +
           subArrays.join(QLatin1Char(' '));
}

QString raidExtendLine(const QString& md, int level, int devices, QStringList parts)
{
    parts.sort();
    return QStringLiteral("/usr/bin/sudo /usr/sbin/mdadm --grow ") + md + QStringLiteral(" -l ") +
           QString::number(level) + QStringLiteral(" -n ") + QString::number(devices) +
           QStringLiteral(" --add ") + parts.join(QLatin1Char(' '));
}

QString raidGrowLine(const QString& md, int level, int devices, QStringList parts)
{
    parts.sort();
    QString line = QStringLiteral("/usr/bin/sudo /usr/sbin/mdadm --grow ") + md +
                   QStringLiteral(" -l ") + QString::number(level);
    if (level != 0 && level != 50 && level != 60)
        line += QStringLiteral(" -n ") + QString::number(devices);
    if (!parts.isEmpty())
        line += QStringLiteral(" --add ") + parts.join(QLatin1Char(' '));
    return line;
}
