#include "vx/vxsysparse.h"

#include "gx2/gx2utils.h"

#include <QHash>
#include <QJsonDocument>
#include <QPair>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace {

QStringList nonEmptyLines(const QString& text)
{
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QStringList words(const QString& line)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    return line.split(blanks, Qt::SkipEmptyParts);
}

double twoDecimals(double value)
{
    return QString::number(value, 'f', 2).toDouble();
}

QString lineStarting(const QStringList& lines, const QString& label)
{
    for (const QString& line : lines)
        if (line.startsWith(label))
            return line;
    return QString();
}

// The first count blank-separated fields of line, and the rest of it as it
// stands (inner blanks kept). False when the line has fewer fields.
bool splitHead(const QString& line, int count, QStringList& head, QString& rest)
{
    int i = 0;
    const int n = line.size();
    for (int field = 0; field < count; ++field) {
        while (i < n && line.at(i).isSpace())
            ++i;
        const int start = i;
        while (i < n && !line.at(i).isSpace())
            ++i;
        if (start == i)
            return false;
        head << line.mid(start, i - start);
    }
    rest = line.mid(i).trimmed();
    return true;
}

// Byte counts stop at 2^53: JSON doubles hold them exactly, and a difference
// of two of them times 1000 still fits in 64 bits.
constexpr qint64 kMaxCount = qint64(1) << 53;

qint64 countOf(const QString& text)
{
    return qBound<qint64>(0, text.toLongLong(), kMaxCount);
}

qint64 jsonCount(const QJsonObject& object, const QString& key)
{
    return qBound<qint64>(0, toInt64(object.value(key)), kMaxCount);
}

} // namespace

QJsonObject topCpuOf(const QString& top)
{
    const QStringList lines = nonEmptyLines(top);
    if (lines.size() < 7)
        return {};
    const QString line = lineStarting(lines, QStringLiteral("%Cpu(s):"));
    if (line.isEmpty())
        return {};
    // The number before each label: a three-digit figure fills its column
    // and glues to the label or comma in front ("%Cpu(s):100.0 us,"). A
    // decimal comma (some locales) is read as a point.
    static const QRegularExpression figure(
        QStringLiteral("(\\d+(?:[.,]\\d+)?)\\s*(us|sy|ni|id)\\b"));
    QJsonObject cpu;
    auto it = figure.globalMatch(line);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        if (!cpu.contains(m.captured(2)))
            cpu.insert(m.captured(2),
                       m.captured(1).replace(QLatin1Char(','), QLatin1Char('.')).toDouble());
    }
    const double busy =
        cpu.value("us").toDouble() + cpu.value("sy").toDouble() + cpu.value("ni").toDouble();
    cpu.insert("ratio", twoDecimals(std::min(100.0, busy)));
    return cpu;
}

QJsonObject topTasksOf(const QString& top)
{
    const QStringList lines = nonEmptyLines(top);
    QJsonObject tasks;
    if (lines.isEmpty())
        return tasks;
    const QStringList summary = words(lines.first());
    if (summary.size() > 2)
        tasks.insert("time", summary.at(2));
    static const QRegularExpression count(
        QStringLiteral("(\\d+)\\s*(total|running|sleeping|stopped|zombie)\\b"));
    auto it = count.globalMatch(lineStarting(lines, QStringLiteral("Tasks:")));
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        // "stoped" is the key the front end reads.
        const QString key =
            m.captured(2) == QLatin1String("stopped") ? QStringLiteral("stoped") : m.captured(2);
        tasks.insert(key, m.captured(1).toInt());
    }
    return tasks;
}

QString maskedCommand(const QString& command)
{
    if (!command.contains(QLatin1String("cryptsetup")))
        return command;
    static const QRegularExpression echoWord(QStringLiteral("(echo -e )\\S+"));
    QString masked = command;
    masked.replace(echoWord, QStringLiteral("\\1******"));
    return masked;
}

QJsonArray psProcessesOf(const QString& ps)
{
    // USER PID %CPU %MEM VSZ RSS TTY STAT START TIME never hold a blank, but a
    // wide VSZ or RSS shifts the columns, so the command is what follows the
    // tenth field rather than a fixed column.
    constexpr int kHeadFields = 10;
    static const QRegularExpression brackets(QStringLiteral("[()\\[\\]]"));
    QList<QJsonObject> rows;
    for (const QString& line : nonEmptyLines(ps)) {
        QStringList head;
        QString command;
        if (!splitHead(line, kHeadFields, head, command) || command.isEmpty())
            continue;
        if (command == QLatin1String("ps aux --noheading"))
            continue;
        // Masked as shown: with the brackets still in, "echo [-e]" or
        // "crypt(setup" would slip past the mask.
        rows << QJsonObject{{"user", head.at(0)},
                            {"pid", head.at(1)},
                            {"cpu", head.at(2)},
                            {"mem", head.at(3)},
                            {"command", maskedCommand(command.remove(brackets))}};
    }
    // "nan" reads as a number too; it sorts as idle so the order stays strict.
    const auto cpuOf = [](const QJsonObject& row) {
        const double cpu = row.value("cpu").toString().toDouble();
        return std::isnan(cpu) ? 0.0 : cpu;
    };
    std::stable_sort(
        rows.begin(), rows.end(),
        [&cpuOf](const QJsonObject& a, const QJsonObject& b) { return cpuOf(a) > cpuOf(b); });
    QJsonArray processes;
    for (const QJsonObject& row : rows)
        processes.append(row);
    return processes;
}

double coreTemperatureOf(const QString& sensors)
{
    const QJsonObject chip =
        QJsonDocument::fromJson(sensors.toUtf8()).object().value("coretemp-isa-0000").toObject();
    double hottest = 0;
    for (const QJsonValue& feature : chip) {
        const QJsonObject readings = feature.toObject();
        for (auto it = readings.begin(); it != readings.end(); ++it)
            if (it.key().endsWith(QLatin1String("_input")))
                hottest = std::max(hottest, it.value().toDouble());
    }
    return hottest;
}

double fahrenheitOf(double celsius)
{
    return twoDecimals(celsius * 1.8 + 32);
}

QJsonObject meminfoOf(const QString& meminfo)
{
    static const QHash<QString, QString> keys{
        {"MemTotal:", "total"},        {"MemFree:", "free"},      {"MemAvailable:", "available"},
        {"SwapTotal:", "swaptotal"},   {"SwapFree:", "swapfree"}, {"Cached:", "cached"},
        {"SwapCached:", "swapcached"},
    };
    QJsonObject memory;
    for (const QString& line : nonEmptyLines(meminfo)) {
        const QStringList fields = words(line);
        if (fields.size() < 2 || !keys.contains(fields.at(0)))
            continue;
        // The file counts in kB; bytes stop at kMaxCount.
        memory.insert(keys.value(fields.at(0)),
                      qMin(countOf(fields.at(1)), kMaxCount / 1024) * 1024);
    }
    const auto rate = [&memory](const char* totalKey, const char* leftKey) -> qint64 {
        const qint64 total = jsonCount(memory, totalKey);
        if (total < 1)
            return 0;
        return (total - jsonCount(memory, leftKey)) * 100 / total;
    };
    memory.insert("memuserate", rate("total", "available"));
    memory.insert("swapuserate", rate("swaptotal", "swapfree"));
    return memory;
}

QJsonObject netSpeedsOf(const QString& netDev, const QStringList& nics, const QJsonObject& previous,
                        qint64 elapsedMs, qint64& readall, qint64& writeall)
{
    readall = 0;
    writeall = 0;
    QJsonObject result;
    const QStringList lines = netDev.split(QLatin1Char('\n'));
    for (int i = 2; i < lines.size(); ++i) {
        // Split at the colon first: old kernels glue a long counter to it.
        const int colon = lines.at(i).indexOf(QLatin1Char(':'));
        if (colon < 0)
            continue;
        const QString name = lines.at(i).left(colon).trimmed();
        const QStringList counters = words(lines.at(i).mid(colon + 1));
        // An interface listed twice would count its traffic twice: the first
        // line is the one kept.
        if (counters.size() < 9 || !nics.contains(name) || result.contains(name))
            continue;
        const qint64 rx = countOf(counters.at(0));
        const qint64 tx = countOf(counters.at(8));
        qint64 readSpeed = 0;
        qint64 writeSpeed = 0;
        const QJsonObject before = previous.value(name).toObject();
        if (!before.isEmpty() && elapsedMs > 0) {
            // A counter that went back (driver reload) gives no rate.
            readSpeed =
                std::max<qint64>(0, (rx - jsonCount(before, "read_bytes")) * 1000 / elapsedMs);
            writeSpeed =
                std::max<qint64>(0, (tx - jsonCount(before, "write_bytes")) * 1000 / elapsedMs);
        }
        readall = cappedSum(readall, readSpeed);
        writeall = cappedSum(writeall, writeSpeed);
        result.insert(name, QJsonObject{{"nic", name},
                                        {"read_bytes", rx},
                                        {"write_bytes", tx},
                                        {"read_speed", readSpeed},
                                        {"write_speed", writeSpeed}});
    }
    return result;
}

QString modelOf(const QString& product, const QStringList& models)
{
    for (const QString& model : models) {
        const QRegularExpression word(QStringLiteral("(?<![A-Za-z0-9])") +
                                      QRegularExpression::escape(model) +
                                      QStringLiteral("(?![A-Za-z0-9])"));
        if (product.contains(word))
            return model;
    }
    return product.trimmed();
}

QJsonObject dmiSystemOf(const QString& dmidecode, const QStringList& models)
{
    static const QList<QPair<QString, QString>> labels{
        {"Manufacturer:", "manufacturer"},
        {"Product Name:", "product"},
        {"Serial Number:", "sn"},
    };
    QJsonObject bios;
    for (const QString& raw : nonEmptyLines(dmidecode)) {
        const QString line = raw.trimmed();
        for (const auto& [label, key] : labels) {
            if (!line.startsWith(label) || bios.contains(key))
                continue;
            const QString value = line.mid(label.size()).trimmed();
            if (!value.isEmpty() && value != QLatin1String("None"))
                bios.insert(key, value);
        }
    }
    const QString product = bios.value("product").toString();
    bios.insert("model",
                product.isEmpty() ? QStringLiteral("(Unknown)") : modelOf(product, models));
    return bios;
}

QJsonObject blkidBlocksOf(const QString& blkid)
{
    QJsonObject devices;
    QJsonObject block;
    const auto close = [&devices, &block] {
        const QString name = block.value("DEVNAME").toString();
        if (!name.isEmpty())
            devices.insert(name, block);
        block = QJsonObject();
    };
    for (const QString& raw : blkid.split(QLatin1Char('\n'))) {
        const QString line = raw.trimmed();
        if (line.isEmpty()) {
            close();
            continue;
        }
        const int equals = line.indexOf(QLatin1Char('='));
        if (equals > 0)
            block.insert(line.left(equals), line.mid(equals + 1));
    }
    close();
    return devices;
}

QString loadAverageOf(const QString& uptime)
{
    const int colon = uptime.lastIndexOf(QLatin1Char(':'));
    return colon < 0 ? QString() : uptime.mid(colon + 1).trimmed();
}

QString kernelVersionOf(const QString& version)
{
    const QStringList fields = words(version);
    return fields.size() >= 3 ? fields.at(2) : QString();
}

QJsonObject uptimeOf(qint64 seconds)
{
    return QJsonObject{{"duration", seconds},
                       {"days", seconds / 86400},
                       {"hours", seconds % 86400 / 3600},
                       {"minutes", seconds % 3600 / 60},
                       {"seconds", seconds % 60}};
}
