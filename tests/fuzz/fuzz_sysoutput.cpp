// libFuzzer target for the readers of the dashboard's sources (top, ps aux,
// sensors -j, /proc/meminfo, /proc/net/dev, dmidecode, blkid -o export,
// uptime, /proc/version), the snapshot's storage fold and status, and the
// package tools' output (dpkg -l, apt list, ps -e; package names come from
// whoever built the package). Whoever
// starts a process chooses the command line that ps and top print, so part of
// this text belongs to any local user: the results must stay consistent, and a
// volume password must never show.

#include "lnx2/lnx2packageparse.h"
#include "routers/lookoutsnapshot.h"
#include "vx/vxsysparse.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

void check(bool ok, const char* what)
{
    if (ok)
        return;
    fprintf(stderr, "system output invariant broken: %s\n", what);
    abort();
}

// Doubles, and so JSON figures, hold every integer below 2^53.
constexpr double kExact = 9007199254740992.0;

// The blanks of the readers' "\\s" and of the kernel's isspace().
bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || (c.unicode() >= 9 && c.unicode() <= 13);
}

bool hasBlank(const QString& text)
{
    return std::any_of(text.begin(), text.end(), isBlank);
}

bool hasBracket(const QString& text)
{
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return QLatin1String("()[]").contains(c); });
}

QString withoutBrackets(QString text)
{
    static const QRegularExpression brackets(QStringLiteral("[()\\[\\]]"));
    return text.remove(brackets);
}

double figure(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toDouble();
}

void checkKeys(const QJsonObject& object, const QSet<QString>& known, const char* what)
{
    for (auto it = object.constBegin(); it != object.constEnd(); ++it)
        check(known.contains(it.key()), what);
}

void checkTop(const QString& text)
{
    const QJsonObject cpu = topCpuOf(text);
    checkKeys(cpu, {"us", "sy", "ni", "id", "ratio"}, "unknown CPU figure");
    if (cpu.contains(QStringLiteral("ratio"))) {
        const double ratio = figure(cpu, "ratio");
        check(ratio >= 0 && ratio <= 100, "CPU ratio outside 0..100");
    }
    checkKeys(topTasksOf(text), {"time", "total", "running", "sleeping", "stoped", "zombie"},
              "unknown task count");
}

// In a command that runs cryptsetup, the word after each "echo -e " is the
// volume password the daemon feeds it.
void checkMasked(const QString& command)
{
    if (!command.contains(QLatin1String("cryptsetup")))
        return;
    const QLatin1String echo("echo -e ");
    for (int at = command.indexOf(echo); at >= 0; at = command.indexOf(echo, at + 1)) {
        const int start = at + echo.size();
        int end = start;
        while (end < command.size() && !isBlank(command.at(end)))
            ++end;
        check(end == start || command.midRef(start, end - start) == QLatin1String("******"),
              "password of a cryptsetup command shown");
    }
}

void checkProcesses(const QString& text)
{
    const QStringList keys{"command", "cpu", "mem", "pid", "user"};
    double busiest = std::numeric_limits<double>::infinity();
    for (const QJsonValue& row : psProcessesOf(text)) {
        const QJsonObject process = row.toObject();
        check(process.keys() == keys, "process row with other keys");
        for (const QJsonValue& value : process)
            check(value.isString(), "process figure not a string");
        const QString command = process.value(QStringLiteral("command")).toString();
        check(!hasBracket(command), "bracket left in a command");
        checkMasked(command);
        // A "nan" row has no place of its own in the order.
        const double cpu = process.value(QStringLiteral("cpu")).toString().toDouble();
        if (!std::isnan(cpu)) {
            check(cpu <= busiest, "processes not busiest first");
            busiest = cpu;
        }
    }
}

// The input's first word as the password of a command line the daemon runs.
void checkPassword(const QString& text)
{
    int start = 0;
    while (start < text.size() && isBlank(text.at(start)))
        ++start;
    int end = start;
    while (end < text.size() && end - start < 64 && !isBlank(text.at(end)))
        ++end;
    const QString secret = text.mid(start, end - start);
    const QString before = QStringLiteral("/bin/sh -c /usr/bin/sudo echo -e ");
    const QString after =
        QStringLiteral(" | sudo cryptsetup luksOpen /dev/vg1/data vg1-data_crypt");
    const QJsonArray rows = psProcessesOf(
        QStringLiteral("root 4242 0.0 0.0 2576 904 ? S 10:00 0:00 ") + before + secret + after);
    check(rows.size() == 1, "command line of the password lost");
    const QString shown = rows.at(0).toObject().value(QStringLiteral("command")).toString();
    // What ps shows of the password: its brackets are dropped with the others.
    const QString bare = withoutBrackets(secret);
    if (!bare.isEmpty() && !(before + QStringLiteral("******") + after).contains(bare))
        check(!shown.contains(bare), "password shown");
}

void checkMemory(const QString& text)
{
    const QJsonObject memory = meminfoOf(text);
    for (const QJsonValue& value : memory)
        check(value.isDouble() && std::isfinite(value.toDouble()), "memory figure not a number");
    const auto checkRate = [&memory](const char* total, const char* left, const char* rate) {
        const double whole = figure(memory, total);
        const double rest = figure(memory, left);
        if (whole > 0 && rest >= 0 && rest <= whole)
            check(figure(memory, rate) >= 0 && figure(memory, rate) <= 100,
                  "use rate outside 0..100");
    };
    checkRate("total", "available", "memuserate");
    checkRate("swaptotal", "swapfree", "swapuserate");
}

void checkSpeeds(const QJsonObject& nics, const QStringList& asked, qint64 readall, qint64 writeall,
                 bool idle)
{
    double reads = 0;
    double writes = 0;
    for (auto it = nics.constBegin(); it != nics.constEnd(); ++it) {
        const QJsonObject nic = it.value().toObject();
        check(!it.key().isEmpty() && !it.key().contains(QLatin1Char(':')) && !hasBlank(it.key()),
              "interface name empty or with a colon or blank");
        check(asked.contains(it.key()) && nic.value(QStringLiteral("nic")).toString() == it.key(),
              "interface not asked for");
        const double read = figure(nic, "read_speed");
        const double write = figure(nic, "write_speed");
        check(read >= 0 && write >= 0, "negative rate");
        check(!idle || (read == 0 && write == 0), "rate without an earlier sample");
        reads += read;
        writes += write;
    }
    if (reads < kExact && writes < kExact)
        check(reads == double(readall) && writes == double(writeall),
              "totals not the sums of the interfaces");
}

void checkNetwork(const QString& text, qint64 elapsedMs)
{
    // The interfaces of /sys/class/net: names the kernel accepts.
    QStringList nics{QStringLiteral("lo"), QStringLiteral("eth0")};
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const QString name = line.section(QLatin1Char(':'), 0, 0).trimmed();
        if (!name.isEmpty() && !name.contains(QLatin1Char('/')) && !hasBlank(name))
            nics << name;
    }
    qint64 readall = -1;
    qint64 writeall = -1;
    const QJsonObject first = netSpeedsOf(text, nics, {}, elapsedMs, readall, writeall);
    checkSpeeds(first, nics, readall, writeall, true);
    const QJsonObject again = netSpeedsOf(text, nics, first, elapsedMs, readall, writeall);
    checkSpeeds(again, nics, readall, writeall, false);
    check(again.keys() == first.keys(), "interfaces differ between two readings");
    for (const QJsonValue& value : again) {
        const QJsonObject nic = value.toObject();
        if (std::fabs(figure(nic, "read_bytes")) < kExact &&
            std::fabs(figure(nic, "write_bytes")) < kExact)
            check(figure(nic, "read_speed") == 0 && figure(nic, "write_speed") == 0,
                  "traffic from unchanged counters");
    }
}

void checkFacts(const QString& text)
{
    const QStringList models{"KA200", "KB201P", "KB401P", "KB801P"};
    check(!dmiSystemOf(text, models).value(QStringLiteral("model")).toString().isEmpty(),
          "empty model");
    // A regular expression per model and line: the first lines are enough.
    for (const QString& line : text.split(QLatin1Char('\n')).mid(0, 16)) {
        const QString model = modelOf(line, models);
        check(model == line.trimmed() || (models.contains(model) && line.contains(model)),
              "model from elsewhere than the product name");
    }
    const QJsonObject blocks = blkidBlocksOf(text);
    for (auto it = blocks.constBegin(); it != blocks.constEnd(); ++it)
        check(!it.key().isEmpty() &&
                  it.value().toObject().value(QStringLiteral("DEVNAME")).toString() == it.key(),
              "block under another name");
    check(!loadAverageOf(text).contains(QLatin1Char(':')), "colon in the load averages");
    check(!hasBlank(kernelVersionOf(text)), "blank in the kernel version");
}

void checkUptime(qint64 seconds)
{
    const QJsonObject span = uptimeOf(seconds);
    if (seconds < 0 || double(seconds) >= kExact)
        return;
    const double days = figure(span, "days");
    const double hours = figure(span, "hours");
    const double minutes = figure(span, "minutes");
    const double rest = figure(span, "seconds");
    check(figure(span, "duration") == double(seconds) && days >= 0 && hours >= 0 && hours < 24 &&
              minutes >= 0 && minutes < 60 && rest >= 0 && rest < 60 &&
              days * 86400 + hours * 3600 + minutes * 60 + rest == double(seconds),
          "uptime parts do not add up");
}

void checkFahrenheit(double celsius)
{
    if (!std::isfinite(celsius) || std::fabs(celsius) > 1e9)
        return;
    const double exact = celsius * 1.8 + 32;
    const double slack = 1e-9 * std::fabs(exact);
    check(std::fabs(fahrenheitOf(celsius) - exact) <= 0.005 + slack, "not two decimals");
    check(std::fabs(lookoutFahrenheit(celsius) - exact) <= 0.05 + slack, "not one decimal");
}

void checkLookout(const QString& text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    const QJsonObject mounts = document.object();
    const QJsonObject storage =
        lookoutStorageOf(mounts, mounts.value(QStringLiteral("lvm")).toObject(),
                         mounts.value(QStringLiteral("zfs")).toObject());
    const double size = figure(storage, "size");
    const double free = figure(storage, "free");
    const double capacity = figure(storage, "capacity");
    if (std::fabs(size) < kExact && std::fabs(free) < kExact && std::fabs(capacity) < kExact)
        check(capacity == size + free, "capacity not used plus free");
    const QJsonValue userate = storage.value(QStringLiteral("userate"));
    if (capacity == 0)
        check(userate.isNull(), "use rate without space");
    else if (size >= 0 && free >= 0)
        check(userate.toDouble(-1) >= 0 && userate.toDouble(-1) <= 100,
              "storage use rate outside 0..100");

    const QJsonArray logs =
        document.isArray() ? document.array() : mounts.value(QStringLiteral("logs")).toArray();
    const int status = lookoutStatusOf(logs);
    check(status >= 0 && status <= 2, "status outside 0..2");

    const QJsonObject fahrenheit = lookoutFahrenheitOf(mounts, coreTemperatureOf(text), size);
    check(fahrenheit.value(QStringLiteral("devs")).toObject().keys() == mounts.keys(),
          "temperatures of other disks");
}

// A name the rule takes can be neither an option nor more than one word
// nor a path.
void checkPackages(const QString& text)
{
    const int lines = text.count(QLatin1Char('\n')) + 1;
    const QList<QJsonObject> entries = dpkgEntriesOf(text);
    check(entries.size() <= lines, "more dpkg entries than lines");
    for (const QJsonObject& entry : entries) {
        const QString name = entry.value(QStringLiteral("package")).toString();
        check(!name.contains(QLatin1Char(':')) && !hasBlank(name), "dpkg name with ':' or blank");
        check(!entry.value(QStringLiteral("status")).toString().isEmpty(), "empty dpkg status");
    }
    const QJsonArray upgrades = aptUpgradablesOf(text);
    check(upgrades.size() <= lines, "more upgrades than lines");
    for (const QJsonValue& value : upgrades) {
        const QString name = value.toObject().value(QStringLiteral("package")).toString();
        check(!name.isEmpty() && !name.contains(QLatin1Char('/')), "apt name empty or with '/'");
    }
    for (const QString& line : aptUpgradableLinesOf(text))
        check(line.contains(QLatin1String("[upgradable from:")), "apt line without an upgrade");
    for (const QString& word : text.split(QLatin1Char(' '))) {
        if (!isPackageName(word))
            continue;
        check(!hasBlank(word) && !word.startsWith(QLatin1Char('-')) &&
                  !word.contains(QLatin1Char('/')) && word.size() >= 2,
              "package rule took a dangerous name");
    }
    packageToolRunning(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    checkTop(text);
    checkProcesses(text);
    checkPassword(text);
    checkMemory(text);
    checkNetwork(text, qint64(size % 3000));
    checkFacts(text);
    checkLookout(text);
    checkPackages(text);

    qint64 seconds = 0;
    double celsius = 0;
    if (size >= sizeof(seconds)) {
        memcpy(&seconds, data, sizeof(seconds));
        memcpy(&celsius, data, sizeof(celsius));
    }
    checkUptime(seconds);
    checkUptime(seconds & 0xffffffff);
    checkFahrenheit(celsius);
    checkFahrenheit(coreTemperatureOf(text));
    return 0;
}
