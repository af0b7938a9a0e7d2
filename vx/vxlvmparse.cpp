#include "vx/vxlvmparse.h"

#include "gx2/gx2utils.h"

#include <QJsonDocument>
#include <QRegularExpression>

namespace {

const qint64 kMaxBytes = Q_INT64_C(9223372036854775807);

// The first line of a "vgdisplay -c" output with at least count fields.
QStringList vgdisplayFields(const QString& out, int count)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() >= count)
            return fields;
    }
    return {};
}

qint64 int64Of(const QString& text)
{
    bool ok = false;
    const qint64 value = text.toLongLong(&ok);
    return ok ? value : 0;
}

// a * b / divisor without overflow for the figures the tools print; 0 for
// negative or absurd ones.
qint64 scaled(qint64 a, qint64 b, qint64 divisor)
{
    if (a < 0 || b < 0 || (b != 0 && a > kMaxBytes / b))
        return 0;
    return a * b / divisor;
}

} // namespace

QStringList outputLinesOf(const QString& out)
{
    return out.split(QLatin1Char('\n'));
}

QStringList blankFieldsOf(const QString& line)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    return line.split(blanks, Qt::SkipEmptyParts);
}

QStringList colonFieldsOf(const QString& line)
{
    QStringList fields = line.trimmed().split(QLatin1Char(':'));
    for (QString& field : fields)
        field = field.trimmed();
    return fields;
}

qint64 vgFreeOf(const QString& out)
{
    QString text = out.trimmed();
    if (text.size() < 2)
        return 0;
    text.chop(1);
    return int64Of(text);
}

QStringList lvmNamesOf(const QString& out)
{
    QStringList names = outputLinesOf(out);
    for (QString& name : names)
        name = name.trimmed();
    while (!names.isEmpty() && names.last().isEmpty())
        names.removeLast();
    return names;
}

int peSizeMbOf(const QString& out)
{
    const QStringList fields = vgdisplayFields(out, 13);
    bool ok = false;
    const qint64 kib = fields.isEmpty() ? 0 : fields.at(12).toLongLong(&ok);
    // An unreadable extent size must not become 0: callers divide by it.
    if (!ok || kib <= 0 || kib > 0x7fffffffLL)
        return 32;
    return int((kib + 1023) >> 10);
}

QString volumePathOf(const QString& out, const QString& vg, const QString& lv, QString* dmPath)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() != 4 || fields.at(0) != vg || fields.at(1) != lv)
            continue;
        if (dmPath)
            *dmPath = fields.at(3);
        return fields.at(2);
    }
    return QString();
}

QString vgLvOf(const QString& out, QString& vg, QString& lv)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() != 3)
            continue;
        vg = fields.at(0);
        lv = fields.at(1);
        return fields.at(2);
    }
    return QString();
}

bool dmPathOf(const QString& out, QString& dmPath)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() > 2) {
            dmPath = fields.at(2);
            return true;
        }
    }
    return false;
}

bool mkfsRunningOf(const QString& psOut, const QString& dev)
{
    if (dev.isEmpty() || !psOut.contains(dev))
        return false;
    for (const QString& line : outputLinesOf(psOut)) {
        if (line.contains(QLatin1String("/sbin/mkfs.")) && blankFieldsOf(line).contains(dev))
            return true;
    }
    return false;
}

bool dfListsSource(const QString& out, const QString& source)
{
    const QStringList lines = outputLinesOf(out);
    for (int i = 1; i < lines.size(); ++i) {
        if (lines.at(i).trimmed() == source)
            return true;
    }
    return false;
}

bool dfFiguresOf(const QString& out, qint64& size, qint64& used, qint64& avail)
{
    const QStringList lines = outputLinesOf(out);
    for (int i = 1; i < lines.size(); ++i) {
        const QStringList fields = blankFieldsOf(lines.at(i));
        if (fields.size() > 3) {
            size = int64Of(fields.at(1));
            used = int64Of(fields.at(2));
            avail = int64Of(fields.at(3));
            return true;
        }
    }
    return false;
}

bool isLuks2StatusOf(const QString& out)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = blankFieldsOf(line);
        if (!fields.isEmpty() && fields.at(0) == QLatin1String("type:"))
            return fields.size() > 1 && fields.at(1) == QLatin1String("LUKS2");
    }
    return false;
}

QJsonObject lvMountsOf(const QString& dfOut)
{
    QJsonObject mounts;
    const QStringList lines = outputLinesOf(dfOut);
    for (int i = 1; i < lines.size(); ++i) {
        const QStringList fields = blankFieldsOf(lines.at(i));
        if (fields.size() <= 5 || !fields.at(0).startsWith(QLatin1String("/dev/")) ||
            !fields.at(5).startsWith(QLatin1String("/mnt/")))
            continue;
        mounts.insert(
            fields.at(5),
            QJsonObject{{QStringLiteral("userate"), fields.at(4)},
                        {QStringLiteral("capacity"), scaled(int64Of(fields.at(1)), 1024, 1)},
                        {QStringLiteral("size"), scaled(int64Of(fields.at(2)), 1024, 1)},
                        {QStringLiteral("free"), scaled(int64Of(fields.at(3)), 1024, 1)}});
    }
    return mounts;
}

bool lvRecordOf(const QString& out, QJsonObject& record)
{
    for (const QString& line : outputLinesOf(out)) {
        const QStringList fields = colonFieldsOf(line);
        if (fields.size() <= 7)
            continue;
        const QString lv = fields.at(2);
        if (lv.isEmpty() || lv.endsWith(QLatin1String("_unused_cache")))
            continue;
        // A tag may itself hold ":", so the tag list is the rest of the line.
        const QStringList tags = fields.mid(7).join(QLatin1Char(':')).split(QLatin1Char(','));
        QString fstype;
        for (const char* known : {"lun", "xfs", "btrfs", "ext4", "ext3", "ntfs"}) {
            if (tags.contains(QLatin1String(known))) {
                fstype = QLatin1String(known);
                break;
            }
        }
        const QString attr = fields.at(6);
        QString type;
        if (attr.startsWith(QLatin1Char('-')))
            type = QStringLiteral("lv");
        else if (attr.startsWith(QLatin1Char('C')))
            type = QStringLiteral("lv+cache");
        else if (attr.startsWith(QLatin1Char('V')))
            type = QStringLiteral("thin");
        record = QJsonObject{{QStringLiteral("extensible"), asCapacity(fields.at(1)) > 0 ? 1 : 0},
                             {QStringLiteral("vg"), fields.at(0)},
                             {QStringLiteral("lv"), lv},
                             {QStringLiteral("capacity"), asCapacity(fields.at(5))},
                             {QStringLiteral("dmpath"), fields.at(4)},
                             {QStringLiteral("lvpath"), fields.at(3)},
                             {QStringLiteral("attr"), attr},
                             {QStringLiteral("fstype"), fstype},
                             {QStringLiteral("type"), type},
                             {QStringLiteral("mounted"), 0}};
        return true;
    }
    return false;
}

QJsonObject vgSizesOf(const QString& out, const QString& vg)
{
    const QStringList fields = vgdisplayFields(out, 16);
    if (fields.isEmpty())
        return {};
    return QJsonObject{
        {QStringLiteral("vg"), vg},
        {QStringLiteral("capacity"), scaled(int64Of(fields.at(11)), 1, 1024)},
        {QStringLiteral("free"), scaled(int64Of(fields.at(15)), int64Of(fields.at(12)), 1024)},
        {QStringLiteral("unit"), QStringLiteral("mb")}};
}

QJsonArray fstabEntriesOf(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return {};
    QJsonArray entries;
    for (const QJsonValue& value :
         document.object().value(QStringLiteral("filesystems")).toArray()) {
        const QJsonObject found = value.toObject();
        QJsonObject entry;
        for (const char* key : {"uuid", "source", "target", "fstype", "options", "freq", "passno"})
            entry.insert(QLatin1String(key), toString(found.value(QLatin1String(key))));
        entries.append(entry);
    }
    return entries;
}
