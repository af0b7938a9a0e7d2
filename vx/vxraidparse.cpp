#include "vx/vxraidparse.h"

#include "gx2/gx2utils.h"

#include <QDateTime>
#include <QLocale>

namespace {

enum class Conv { Text, Time, Level, Bytes, Int, Total, State, Name, Percent };

struct Label
{
    const char* label;
    const char* key;
    Conv conv;
};

// In the order lines are matched: the first label that starts a line wins.
const Label kLabels[] = {{"Version :", "major_version", Conv::Text},
                         {"Creation Time :", "ctime", Conv::Time},
                         {"Raid Level :", "raid_level", Conv::Level},
                         {"Array Size :", "array_size", Conv::Bytes},
                         {"Used Dev Size :", "used_size", Conv::Bytes},
                         {"Raid Devices :", "raid_devices", Conv::Int},
                         {"Total Devices :", "total_devices", Conv::Total},
                         {"Persistence :", "persistence", Conv::Text},
                         {"Update Time :", "utime", Conv::Time},
                         {"State :", "state", Conv::State},
                         {"Active Devices :", "active_devices", Conv::Int},
                         {"Working Devices :", "working_devices", Conv::Int},
                         {"Failed Devices :", "failed_devices", Conv::Int},
                         {"Spare Devices :", "spare_devices", Conv::Int},
                         {"Layout :", "layout", Conv::Text},
                         {"Chunk Size :", "chunk_size", Conv::Text},
                         {"Consistency Policy :", "consistency_policy", Conv::Text},
                         {"Name :", "name", Conv::Name},
                         {"UUID :", "uuid", Conv::Text},
                         {"Events :", "events", Conv::Int},
                         {"Resync Status :", "resync_percent", Conv::Percent},
                         {"Rebuild Status :", "rebuild_percent", Conv::Percent},
                         {"Reshape Status :", "reshape_percent", Conv::Percent}};

const char* const kStatusLabels[][2] = {{"Resync Status :", "resync_percent"},
                                        {"Rebuild Status :", "rebuild_percent"},
                                        {"Reshape Status :", "reshape_percent"}};

QStringList wordsOf(const QString& line)
{
    return line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QStringList linesOf(const QString& text)
{
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QString firstWord(const QString& text)
{
    return wordsOf(text).value(0);
}

// The text after "Label :" (the blank behind the colon included), trimmed.
QString valueAfter(const QString& trimmed, const char* label)
{
    return trimmed.mid(int(qstrlen(label)) + 1).trimmed();
}

QJsonArray statesOf(const QString& state)
{
    QJsonArray states;
    for (const QString& part : state.split(QLatin1Char(','))) {
        if (!part.trimmed().isEmpty())
            states.append(part.trimmed());
    }
    return states;
}

// "raid5" -> 5; levels without digits ("linear", "container") are 0.
int levelOf(const QString& raidLevel)
{
    return raidLevel.startsWith(QLatin1String("raid")) ? raidLevel.mid(4).toInt() : 0;
}

QString lookup(const std::function<QString(const QString&)>& fn, const QString& text)
{
    return fn ? fn(text) : text;
}

void convert(QJsonObject& attributes, const Label& label, const QString& value)
{
    const QString key = QLatin1String(label.key);
    switch (label.conv) {
    case Conv::Text:
    case Conv::Level:
        attributes.insert(key, value);
        break;
    case Conv::Time:
        attributes.insert(key, raidTimeOf(value));
        break;
    case Conv::Bytes:
        attributes.insert(key, firstWord(value).toLongLong() * 1024);
        break;
    case Conv::Int:
        attributes.insert(key, firstWord(value).toLongLong());
        break;
    case Conv::Total:
        attributes.insert(key, firstWord(value).toInt());
        attributes.insert(QStringLiteral("total_disks"), firstWord(value).toInt());
        break;
    case Conv::State:
        attributes.insert(key, value);
        attributes.insert(QStringLiteral("states"), statesOf(value));
        break;
    case Conv::Name:
        attributes.insert(key, firstWord(value).section(QLatin1Char(':'), 0, 0));
        break;
    case Conv::Percent:
        attributes.insert(key, firstWord(value));
        break;
    }
}

// One row of the device table; false for rows without a device ("removed").
bool memberOf(QJsonObject& member, bool& spare, const QString& row, const QJsonObject* inventory,
              const RaidLookups& lookups)
{
    const int at = row.indexOf(QLatin1String("/dev/"));
    if (at < 0)
        return false;
    const QStringList columns = wordsOf(row.left(at));
    QString part = firstWord(row.mid(at));
    if (part.startsWith(QLatin1String("/dev/md/")))
        part = lookup(lookups.canonical, part);
    const QString state = columns.mid(4).join(QLatin1Char(' '));
    spare = state == QLatin1String("spare");
    const QString dev = lookup(lookups.parentOf, part);
    const QJsonObject disk = inventory ? inventory->value(dev).toObject() : QJsonObject();
    const QString inuse = toString(disk.value(QStringLiteral("inuse")));
    member.insert(QStringLiteral("part"), part);
    member.insert(QStringLiteral("dev"), dev);
    member.insert(QStringLiteral("number"), columns.value(0));
    member.insert(QStringLiteral("member"), columns.value(3));
    member.insert(QStringLiteral("capacity"), toInt64(disk.value(QStringLiteral("capacity"))));
    member.insert(QStringLiteral("bytes"), toInt64(disk.value(QStringLiteral("capacity"))));
    for (const char* key : {"kind", "inuse"}) {
        const QJsonValue value = disk.value(QLatin1String(key));
        member.insert(QLatin1String(key), value.isUndefined() ? QJsonValue(QString()) : value);
    }
    member.insert(QStringLiteral("used"), inuse.isEmpty() ? 0 : 1);
    member.insert(QStringLiteral("state"), spare ? QString() : state);
    return true;
}

// "/dev/md0:" or "/dev/md/NAME:" (a NAME may itself hold a colon).
QString headerPath(const QString& line)
{
    QString path = line.trimmed();
    if (path.endsWith(QLatin1Char(':')))
        path.chop(1);
    else
        path = path.section(QLatin1Char(':'), 0, 0);
    return path;
}

} // namespace

bool raidDetailOf(QJsonObject& record, const QString& output, const QString& md,
                  const QJsonObject* inventory, const RaidLookups& lookups)
{
    const QStringList lines = linesOf(output);
    if (lines.isEmpty() ||
        lookup(lookups.canonical, headerPath(lines.first())) != lookup(lookups.canonical, md))
        return false;

    QJsonObject attributes;
    QJsonArray members;
    QJsonArray spares;
    bool table = false;
    for (const QString& line : lines.mid(1)) {
        const QString trimmed = line.trimmed();
        if (table) {
            QJsonObject member;
            bool spare = false;
            if (memberOf(member, spare, trimmed, inventory, lookups))
                (spare ? spares : members).append(member);
            continue;
        }
        if (firstWord(trimmed) == QLatin1String("Number")) {
            table = true;
            continue;
        }
        for (const Label& label : kLabels) {
            if (!trimmed.startsWith(QLatin1String(label.label)))
                continue;
            if (!attributes.contains(QLatin1String(label.key)))
                convert(attributes, label, valueAfter(trimmed, label.label));
            break;
        }
    }

    const int level = levelOf(attributes.value(QStringLiteral("raid_level")).toString());
    const qint64 devices = toInt64(attributes.value(QStringLiteral("raid_devices")));
    // mdadm prints no "Used Dev Size" for striped and linear arrays: each
    // member holds an equal share of the array.
    if (level == 0 && !attributes.contains(QStringLiteral("used_size")) && devices > 0)
        attributes.insert(QStringLiteral("used_size"),
                          toInt64(attributes.value(QStringLiteral("array_size"))) / devices);
    const QString state = attributes.value(QStringLiteral("state")).toString();
    const bool active =
        !state.contains(QLatin1String("FAILED")) && !state.contains(QLatin1String("Not Started"));

    record = QJsonObject{{QStringLiteral("md"), md},
                         {QStringLiteral("dev"), md},
                         {QStringLiteral("level"), level},
                         {QStringLiteral("active"), active ? 1 : 0},
                         {QStringLiteral("attributes"), attributes},
                         {QStringLiteral("members"), members},
                         {QStringLiteral("spares"), spares}};
    return true;
}

QString raidTimeOf(const QString& text)
{
    // ctime() form, C locale, day of month padded with a blank: the weekday
    // is dropped so that a mismatching one cannot reject the date.
    const QStringList words = wordsOf(text.simplified());
    if (words.size() != 5)
        return QString();
    const QDateTime time = QLocale::c().toDateTime(words.mid(1).join(QLatin1Char(' ')),
                                                   QStringLiteral("MMM d HH:mm:ss yyyy"));
    return time.isValid() ? time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) : QString();
}

QJsonObject raidProgressOf(const QString& output)
{
    QJsonObject progress{{QStringLiteral("synching"), 0}};
    bool found = false;
    for (const QString& line : linesOf(output)) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(QLatin1String("State :"))) {
            const QString state = valueAfter(trimmed, "State :");
            progress.insert(QStringLiteral("state"), state);
            progress.insert(QStringLiteral("states"), statesOf(state));
            continue;
        }
        for (const auto& status : kStatusLabels) {
            if (found || !trimmed.startsWith(QLatin1String(status[0])))
                continue;
            const QString percent = firstWord(valueAfter(trimmed, status[0]));
            progress.insert(QLatin1String(status[1]), percent);
            progress.insert(QStringLiteral("percent"), percent);
            progress.insert(QStringLiteral("synching"), 1);
            found = true;
        }
    }
    return progress;
}

bool raidRemodelingOf(const QString& output)
{
    for (const QString& line : linesOf(output)) {
        const QString trimmed = line.trimmed();
        for (const auto& status : kStatusLabels) {
            if (trimmed.startsWith(QLatin1String(status[0])))
                return true;
        }
    }
    return false;
}

QJsonObject raidStatusOf(const QJsonObject& record, bool used)
{
    const QJsonObject attributes = record.value(QStringLiteral("attributes")).toObject();
    const QJsonArray states = attributes.value(QStringLiteral("states")).toArray();
    // A degraded array counts as busy so that the front end shows it so.
    bool synching = false;
    for (const char* busy : {"degraded", "recovering", "resyncing", "reshaping", "reshape"})
        synching = synching || states.contains(QLatin1String(busy));
    return QJsonObject{{QStringLiteral("used"), used ? 1 : 0},
                       {QStringLiteral("faulty"),
                        toInt64(attributes.value(QStringLiteral("failed_devices"))) >= 1 ? 1 : 0},
                       {QStringLiteral("synching"), synching ? 1 : 0},
                       {QStringLiteral("sync"), synching ? 1 : 0},
                       {QStringLiteral("//sync"), QStringLiteral("deprecated: -> synching")}};
}

namespace {

// The lines of /proc/mdstat that start an array: "mdN : state ...".
QList<QStringList> mdstatArrays(const QString& mdstat)
{
    QList<QStringList> arrays;
    for (const QString& line : linesOf(mdstat)) {
        const QStringList words = wordsOf(line);
        if (line.startsWith(QLatin1String("md")) && words.size() > 2 &&
            words[1] == QLatin1String(":"))
            arrays << words;
    }
    return arrays;
}

} // namespace

QStringList mdstatNames(const QString& mdstat)
{
    QStringList names;
    for (const QStringList& words : mdstatArrays(mdstat))
        names << QStringLiteral("/dev/") + words[0];
    return names;
}

QJsonArray mdstatQuickList(const QString& mdstat)
{
    QJsonArray list;
    for (const QStringList& words : mdstatArrays(mdstat)) {
        int level = -1;
        bool levelSeen = false;
        QStringList members;
        QJsonArray abnormals;
        // The kernel may print "(auto-read-only)" before the level word, and
        // an inactive array has no level word at all.
        for (const QString& word : words.mid(3)) {
            const int bracket = word.indexOf(QLatin1Char('['));
            if (bracket > 0) {
                members << word.left(bracket);
            } else if (!levelSeen && word.startsWith(QLatin1String("raid"))) {
                level = word.mid(4).toInt();
                levelSeen = true;
            } else {
                abnormals.append(word);
            }
        }
        members.sort();
        list.append(
            QJsonObject{{QStringLiteral("dev"), QStringLiteral("/dev/") + words[0]},
                        {QStringLiteral("active"), words[2] == QLatin1String("active") ? 1 : 0},
                        {QStringLiteral("level"), level},
                        {QStringLiteral("members"), toJsonArray(members)},
                        {QStringLiteral("abnormals"), abnormals}});
    }
    return list;
}

QJsonObject raidFoldOf(const QJsonObject& arrays)
{
    // A two-tier array (50, 60, a nested 10) lists its sub-arrays as
    // members. It gains their whole records under "submd" and their levels
    // under "levels"; the sub-arrays stay listed on their own, as the front
    // end shows every array.
    QJsonObject folded = arrays;
    for (auto it = arrays.constBegin(); it != arrays.constEnd(); ++it) {
        QJsonObject record = it.value().toObject();
        QJsonObject submd;
        QJsonArray levels;
        for (const QJsonValue& value : record.value(QStringLiteral("members")).toArray()) {
            const QString part = value.toObject().value(QStringLiteral("part")).toString();
            if (part == it.key() || !arrays.contains(part) || submd.contains(part))
                continue;
            const QJsonObject sub = arrays.value(part).toObject();
            submd.insert(part, sub);
            levels.append(sub.value(QStringLiteral("level")));
        }
        if (submd.isEmpty())
            continue;
        record.insert(QStringLiteral("submd"), submd);
        record.insert(QStringLiteral("levels"), levels);
        folded.insert(it.key(), record);
    }
    return folded;
}
