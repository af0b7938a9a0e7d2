#include "lnx2/lnx2packageparse.h"

#include <QRegularExpression>

bool isPackageName(const QString& name)
{
    static const QRegularExpression rule(
        QStringLiteral("\\A[a-z0-9][a-z0-9+.-]+(:[a-z0-9][a-z0-9-]*)?\\z"));
    return rule.match(name).hasMatch();
}

QList<QJsonObject> dpkgEntriesOf(const QString& out)
{
    QList<QJsonObject> entries;
    bool table = false;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (!table) {
            table = line.startsWith(QLatin1String("+++-==="));
            continue;
        }
        // Any blank separates: a tab left inside a name would reach a tool as part of it.
        static const QRegularExpression blanks(QStringLiteral("\\s+"));
        const QStringList words = line.split(blanks, Qt::SkipEmptyParts);
        if (words.size() < 2)
            continue;
        QJsonObject entry;
        entry.insert(QStringLiteral("status"), words[0]);
        entry.insert(QStringLiteral("package"), words[1].section(QLatin1Char(':'), 0, 0));
        entry.insert(QStringLiteral("version"), words.value(2));
        entries << entry;
    }
    return entries;
}

namespace {

// The installed version: after "upgradable from:" (or "upgradable_from:")
// up to the closing bracket.
QString currentOf(const QString& line)
{
    static const QRegularExpression from(QStringLiteral("upgradable[ _]from:([^\\]]*)"));
    const QRegularExpressionMatch match = from.match(line);
    return match.hasMatch() ? match.captured(1).trimmed() : QString();
}

} // namespace

QJsonArray aptUpgradablesOf(const QString& out)
{
    QJsonArray list;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        const int slash = line.indexOf(QLatin1Char('/'));
        if (slash <= 0)
            continue;
        const QStringList words = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        QJsonObject entry;
        entry.insert(QStringLiteral("package"), line.left(slash));
        entry.insert(QStringLiteral("version"), words.value(1));
        entry.insert(QStringLiteral("current"), currentOf(line));
        list.append(entry);
    }
    return list;
}

QStringList aptUpgradableLinesOf(const QString& out)
{
    QStringList lines;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (line.contains(QLatin1String("[upgradable from:")))
            lines << line.trimmed();
    }
    return lines;
}

bool packageToolRunning(const QString& psOut)
{
    static const QStringList marks{QStringLiteral(" dpkg "), QStringLiteral(" apt "),
                                   QStringLiteral("/dpkg "), QStringLiteral("/apt ")};
    for (const QString& line : psOut.split(QLatin1Char('\n'))) {
        // The command ends the line: a blank after it makes the last word count.
        const QString padded = line + QLatin1Char(' ');
        for (const QString& mark : marks) {
            if (padded.contains(mark))
                return true;
        }
    }
    return false;
}
