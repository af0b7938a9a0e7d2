#include "vx/vxdiskparse.h"

#include "gx2/gx2utils.h"

#include <QJsonDocument>

namespace {

QStringList wordsOf(const QString& line)
{
    return line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QStringList linesOf(const QString& text)
{
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

// mtab escapes blanks and a few other characters as octal "\040".
QString unescapeMtab(const QString& field)
{
    QString out;
    for (int i = 0; i < field.size(); ++i) {
        bool ok = false;
        const int code = field.mid(i + 1, 3).toInt(&ok, 8);
        if (field[i] == QLatin1Char('\\') && i + 3 < field.size() && ok) {
            out += QChar(code);
            i += 3;
            continue;
        }
        out += field[i];
    }
    return out;
}

} // namespace

QJsonObject lsblkJson(const QString& output)
{
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8());
    return document.isObject() ? document.object() : QJsonObject();
}

QStringList mdstatMembers(const QString& mdstat)
{
    QStringList members;
    for (const QString& line : linesOf(mdstat)) {
        const QStringList words = wordsOf(line);
        if (words.size() <= 2 || words[1] != QLatin1String(":"))
            continue;
        for (const QString& word : words) {
            const int bracket = word.indexOf(QLatin1Char('['));
            if (bracket > 0)
                members << QStringLiteral("/dev/") + word.left(bracket);
        }
    }
    return members;
}

bool mdstatHasArray(const QString& mdstat, const QString& name)
{
    for (const QString& line : linesOf(mdstat)) {
        const QStringList words = wordsOf(line);
        if (words.size() >= 2 && words[0] == name && words[1] == QLatin1String(":"))
            return true;
    }
    return false;
}

QStringList pvsMembers(const QString& output)
{
    QStringList members;
    for (const QString& line : linesOf(output)) {
        const QStringList fields = line.trimmed().split(QLatin1Char(':'));
        if (fields.size() >= 2 && !fields[1].isEmpty())
            members << fields[1];
    }
    return members;
}

QStringList zpoolMembers(const QString& output)
{
    QStringList members;
    for (const QString& line : linesOf(output)) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(QLatin1String("/dev/")))
            members << trimmed.section(QLatin1Char(' '), 0, 0).section(QLatin1Char('\t'), 0, 0);
    }
    return members;
}

QString parentDiskOf(const QString& output, const QString& part)
{
    const QStringList lines = linesOf(output);
    if (!lines.isEmpty() && lines.first().trimmed().startsWith(QLatin1String("/dev/")))
        return lines.first().trimmed();
    return part;
}

QStringList partitionsOf(const QString& output)
{
    QStringList parts;
    for (const QString& line : linesOf(output)) {
        const QStringList words = wordsOf(line);
        if (words.size() >= 2 && words[1] == QLatin1String("part"))
            parts << words[0];
    }
    return parts;
}

QStringList diskPathsOf(const QString& output)
{
    QStringList paths;
    const QJsonArray devices = lsblkJson(output).value(QStringLiteral("blockdevices")).toArray();
    for (const QJsonValue& value : devices) {
        const QJsonObject device = value.toObject();
        if (toString(device.value(QStringLiteral("type"))) == QLatin1String("disk"))
            paths << toString(device.value(QStringLiteral("path")));
    }
    return paths;
}

bool hdparmSerial(QString& serial, const QString& output)
{
    static const QString label = QStringLiteral("Serial Number:");
    for (const QString& line : linesOf(output)) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(label)) {
            serial = trimmed.mid(label.size()).trimmed();
            return true;
        }
    }
    return false;
}

QString partedFstype(const QString& output)
{
    for (const QString& line : linesOf(output)) {
        const QStringList words = wordsOf(line);
        if (words.size() > 4 && words[0] == QLatin1String("1"))
            return words[4];
    }
    return QString();
}

bool fdiskLists(const QString& output, const QString& dev)
{
    for (const QString& line : linesOf(output)) {
        const QStringList words = wordsOf(line);
        if (!words.isEmpty() && words[0] == dev)
            return true;
    }
    return false;
}

QStringList diskstatsDevices(const QString& diskstats)
{
    QStringList devices;
    for (const QString& line : linesOf(diskstats)) {
        const QStringList words = wordsOf(line);
        if (words.size() > 2)
            devices << QStringLiteral("/dev/") + words[2];
    }
    return devices;
}

bool mtabMountOf(const QString& mtab, const QString& dev, QString* mountpoint)
{
    for (const QString& line : linesOf(mtab)) {
        const QStringList words = wordsOf(line);
        if (words.size() >= 2 && words[0] == dev) {
            if (mountpoint)
                *mountpoint = unescapeMtab(words[1]);
            return true;
        }
    }
    return false;
}
