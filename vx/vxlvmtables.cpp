#include "vx/vxlvmtables.h"

#include <QJsonObject>
#include <QRegularExpression>

namespace {

// Comment lines of a table as they stand, in order.
QStringList commentLines(const QString& text)
{
    QStringList comments;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        if (line.trimmed().startsWith(QLatin1Char('#')))
            comments << line;
    }
    return comments;
}

// fstab separates fields with blanks, so blanks, control characters and the
// backslash inside one are written octal as mount reads them back.
QString fstabField(const QString& text, const char* fallback)
{
    if (text.isEmpty())
        return QLatin1String(fallback);
    QString field;
    for (const QChar c : text) {
        if (c.unicode() <= ' ' || c == QLatin1Char('\\'))
            field += QStringLiteral("\\%1").arg(c.unicode(), 3, 8, QLatin1Char('0'));
        else
            field += c;
    }
    return field;
}

// An entry as a line of six fields; "" for an entry that names no source or
// target, which mount could not use anyway.
QString fstabLine(const QJsonObject& entry, const QString& first)
{
    const QString target = entry.value(QStringLiteral("target")).toString();
    if (first.isEmpty() || target.isEmpty())
        return QString();
    return QStringList{fstabField(first, ""),
                       fstabField(target, ""),
                       fstabField(entry.value(QStringLiteral("fstype")).toString(), "auto"),
                       fstabField(entry.value(QStringLiteral("options")).toString(), "defaults"),
                       fstabField(entry.value(QStringLiteral("freq")).toString(), "0"),
                       fstabField(entry.value(QStringLiteral("passno")).toString(), "0")}
        .join(QLatin1Char(' '));
}

// The first fstab field: a stable UUID= where the device path could change
// between boots, the path itself for LVM and mapper devices.
QString fstabSource(const QJsonObject& entry)
{
    const QString source = entry.value(QStringLiteral("source")).toString();
    const QString target = entry.value(QStringLiteral("target")).toString();
    const QString uuid = entry.value(QStringLiteral("uuid")).toString();
    if (source.isEmpty() || target.endsWith(QLatin1String("_crypt")) || uuid.isEmpty())
        return source;
    if (target == QLatin1String("/"))
        return QStringLiteral("UUID=") + uuid;
    if (source.count(QLatin1Char('/')) > 2)
        return source;
    return QStringLiteral("UUID=") + uuid;
}

// crypttab lines, trimmed; keepBlank keeps empty ones. The line of lvPath
// (second field) is left out and *dropped tells whether there was one.
QStringList crypttabOthers(const QString& text, const QString& lvPath, bool keepBlank,
                           bool* dropped)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    QStringList lines;
    bool gone = false;
    for (const QString& raw : text.split(QLatin1Char('\n'))) {
        const QString line = raw.trimmed();
        if (line.isEmpty()) {
            if (keepBlank)
                lines << line;
            continue;
        }
        if (!line.startsWith(QLatin1Char('#'))) {
            const QStringList fields = line.split(blanks, Qt::SkipEmptyParts);
            if (fields.size() >= 3 && fields.at(1) == lvPath) {
                gone = true;
                continue;
            }
        }
        lines << line;
    }
    if (dropped)
        *dropped = gone;
    return lines;
}

} // namespace

QStringList fstabAppendLines(const QJsonArray& entries, const QString& fstabText,
                             const QString& newSource, const QString& newLine)
{
    QStringList lines = commentLines(fstabText);
    for (const QJsonValue& value : entries) {
        const QJsonObject entry = value.toObject();
        if (entry.value(QStringLiteral("source")).toString() == newSource)
            continue;
        const QString line = fstabLine(entry, fstabSource(entry));
        if (!line.isEmpty())
            lines << line;
    }
    lines << newLine;
    return lines;
}

QStringList fstabRemoveLines(const QJsonArray& entries, const QString& fstabText,
                             const QString& target, bool* dropped)
{
    QStringList lines = commentLines(fstabText);
    bool gone = false;
    for (const QJsonValue& value : entries) {
        const QJsonObject entry = value.toObject();
        if (entry.value(QStringLiteral("target")).toString() == target) {
            gone = true;
            continue;
        }
        const QString line = fstabLine(entry, entry.value(QStringLiteral("source")).toString());
        if (!line.isEmpty())
            lines << line;
    }
    lines << QString();
    if (dropped)
        *dropped = gone;
    return lines;
}

QStringList crypttabAppendLines(const QString& crypttabText, const QString& lvPath,
                                const QString& newLine)
{
    QStringList lines = crypttabOthers(crypttabText, lvPath, false, nullptr);
    // An empty last element: the file ends with a newline, which some
    // line readers need to see the new line at all.
    lines << newLine << QString();
    return lines;
}

QStringList crypttabRemoveLines(const QString& crypttabText, const QString& lvPath, bool* dropped)
{
    return crypttabOthers(crypttabText, lvPath, true, dropped);
}
