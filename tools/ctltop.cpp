#include "tools/ctltop.h"

#include "gx2/gx2utils.h"
#include "tools/ctlcall.h"

#include <QJsonArray>

#include <algorithm>

namespace {

// Rows the process table keeps before group lines or events take any.
constexpr int kMinProcessRows = 3;
constexpr int kEventRowsRoom = 5;
constexpr int kMaxEvents = 5;

// East Asian wide and fullwidth blocks: two columns on every terminal.
bool isWide(uint cp)
{
    static const uint ranges[][2] = {
        {0x1100, 0x115f},   {0x2e80, 0x303e},   {0x3041, 0x33ff}, {0x3400, 0x4dbf},
        {0x4e00, 0x9fff},   {0xa000, 0xa4cf},   {0xac00, 0xd7a3}, {0xf900, 0xfaff},
        {0xfe30, 0xfe4f},   {0xff00, 0xff60},   {0xffe0, 0xffe6}, {0x1f300, 0x1f64f},
        {0x1f900, 0x1f9ff}, {0x20000, 0x3fffd},
    };
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [cp](const uint* r) { return cp >= r[0] && cp <= r[1]; });
}

// Walks text as a terminal shows it: take(shown text, columns) per character.
template <typename Take> void forEachShown(const QString& text, Take take)
{
    for (const uint cp : text.toUcs4()) {
        if (cp == '\t') {
            take(QStringLiteral(" "), 1);
        } else if (cp < 0x20 || (cp >= 0x7f && cp < 0xa0)) {
            take(QStringLiteral("?"), 1);
        } else {
            const QChar::Category category = QChar::category(cp);
            // Format characters (direction overrides and the like) are dropped.
            if (category == QChar::Other_Format)
                continue;
            const bool mark =
                category == QChar::Mark_NonSpacing || category == QChar::Mark_Enclosing;
            take(QString::fromUcs4(&cp, 1), mark ? 0 : isWide(cp) ? 2 : 1);
        }
    }
}

QString textOf(const QJsonValue& value)
{
    if (value.isString())
        return value.toString();
    return value.isDouble() ? QString::number(value.toDouble()) : QString();
}

QString number1(double value)
{
    return QString::number(value, 'f', 1);
}

// 1024 powers with one decimal below 100 ("1.9 GB", "3 GB"): whole units
// would show a 1.9 GiB machine as "1 GB".
QString humanSize(qint64 bytes)
{
    static const char* const units[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    double value = double(bytes < 0 ? 0 : bytes);
    int unit = 0;
    while (value >= 1024 && unit < 5) {
        value /= 1024;
        ++unit;
    }
    QString figure = QString::number(value, 'f', unit > 0 && value < 100 ? 1 : 0);
    if (figure.endsWith(QLatin1String(".0")))
        figure.chop(2);
    return figure + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString percent(double value)
{
    return QString::number(value, 'f', 0) + QLatin1Char('%');
}

// part of whole in percent; "-" when there is no whole.
QString share(qint64 part, qint64 whole)
{
    return whole > 0 ? percent(double(part) * 100 / double(whole)) : QStringLiteral("-");
}

// The figure the daemon computed when it sent one (it may send null).
QString rateOr(const QJsonValue& rate, qint64 part, qint64 whole)
{
    return rate.isDouble() ? percent(rate.toDouble()) : share(part, whole);
}

QString speed(const QJsonValue& bytesPerSecond)
{
    return humanSize(toInt64(bytesPerSecond)) + QStringLiteral("/s");
}

QString padLeft(const QString& text, int width)
{
    const QString cut = ctlFitLine(text, width);
    return QString(width - ctlTextWidth(cut), QLatin1Char(' ')) + cut;
}

QString padRight(const QString& text, int width)
{
    const QString cut = ctlFitLine(text, width);
    return cut + QString(width - ctlTextWidth(cut), QLatin1Char(' '));
}

QJsonObject objectAt(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toObject();
}

QString uptimeText(const QJsonObject& uptime)
{
    const QLatin1Char zero('0');
    const QString clock = QStringLiteral("%1:%2")
                              .arg(toInt64(uptime.value(QLatin1String("hours"))), 2, 10, zero)
                              .arg(toInt64(uptime.value(QLatin1String("minutes"))), 2, 10, zero);
    const qint64 days = toInt64(uptime.value(QLatin1String("days")));
    return days > 0 ? QStringLiteral("%1d %2").arg(days).arg(clock) : clock;
}

QString statusWord(const QJsonValue& status)
{
    switch (toInt(status)) {
    case 0:
        return QStringLiteral("ok");
    case 1:
        return QStringLiteral("warning");
    case 2:
        return QStringLiteral("error");
    default:
        return QStringLiteral("status ") + textOf(status);
    }
}

QString headerLine(const QJsonObject& r)
{
    QStringList parts{textOf(r.value(QLatin1String("hostname")))};
    // Next to the host, so that a narrow terminal still shows it.
    if (r.contains(QLatin1String("status")))
        parts << statusWord(r.value(QLatin1String("status")));
    const QString time = textOf(objectAt(r, "process").value(QLatin1String("time")));
    if (!time.isEmpty())
        parts << time;
    const QJsonObject uptime = objectAt(r, "uptime");
    if (!uptime.isEmpty())
        parts << QStringLiteral("up ") + uptimeText(uptime);
    const QString load = textOf(r.value(QLatin1String("loadaverage")));
    if (!load.isEmpty())
        parts << QStringLiteral("load ") + load;
    const QString kernel = textOf(r.value(QLatin1String("kernelversion")));
    if (!kernel.isEmpty())
        parts << QStringLiteral("kernel ") + kernel;
    return parts.join(QStringLiteral("  "));
}

QString cpuLine(const QJsonObject& cpu)
{
    QString line =
        QStringLiteral("CPU   %1%").arg(number1(toDouble(cpu.value(QLatin1String("ratio")))));
    for (const char* key : {"us", "sy", "ni", "id"})
        line += QStringLiteral("  %1 %2").arg(QLatin1String(key),
                                              number1(toDouble(cpu.value(QLatin1String(key)))));
    // 0 is what the daemon reports when no sensor answered.
    const double celsius = toDouble(cpu.value(QLatin1String("temperature")));
    if (celsius > 0)
        line += QStringLiteral("  %1°C").arg(number1(celsius));
    return line;
}

QStringList memoryLines(const QJsonObject& m)
{
    const qint64 total = toInt64(m.value(QLatin1String("total")));
    const qint64 available = toInt64(m.value(QLatin1String("available")));
    const QString mem =
        QStringLiteral("Mem   %1 / %2  %3  avail %4  cached %5")
            .arg(humanSize(total - available), humanSize(total),
                 rateOr(m.value(QLatin1String("memuserate")), total - available, total),
                 humanSize(available), humanSize(toInt64(m.value(QLatin1String("cached")))));
    const qint64 swapTotal = toInt64(m.value(QLatin1String("swaptotal")));
    const qint64 swapUsed = swapTotal - toInt64(m.value(QLatin1String("swapfree")));
    const QString swap =
        swapTotal > 0 ? QStringLiteral("Swap  %1 / %2  %3")
                            .arg(humanSize(swapUsed), humanSize(swapTotal),
                                 rateOr(m.value(QLatin1String("swapuserate")), swapUsed, swapTotal))
                      : QStringLiteral("Swap  none");
    return {mem, swap};
}

// The totals first, then each interface while the line has room.
QString networkLine(const QJsonObject& network, int width)
{
    QString line = QStringLiteral("Net   ↓ %1  ↑ %2")
                       .arg(speed(network.value(QLatin1String("readall"))),
                            speed(network.value(QLatin1String("writeall"))));
    const QJsonObject nics = objectAt(network, "nic");
    for (auto it = nics.begin(); it != nics.end(); ++it) {
        const QJsonObject nic = it.value().toObject();
        const QString part = QStringLiteral("   %1 ↓ %2 ↑ %3")
                                 .arg(it.key(), speed(nic.value(QLatin1String("read_speed"))),
                                      speed(nic.value(QLatin1String("write_speed"))));
        if (ctlTextWidth(line + part) > width)
            break;
        line += part;
    }
    return line;
}

QString diskLine(const QJsonObject& disk)
{
    const QJsonObject speeds = objectAt(disk, "speed");
    QString line = QStringLiteral("Disk  read %1  write %2")
                       .arg(speed(speeds.value(QLatin1String("read_speed"))),
                            speed(speeds.value(QLatin1String("write_speed"))));
    const QJsonObject celsius = objectAt(disk, "temperature");
    if (!objectAt(celsius, "devs").isEmpty())
        line += QStringLiteral("  %1–%2°C")
                    .arg(textOf(celsius.value(QLatin1String("min"))),
                         textOf(celsius.value(QLatin1String("max"))));
    return line;
}

QString storageLine(const QJsonObject& storage)
{
    // "size" is the used space; "userate" is null when nothing but "/" is mounted.
    const qint64 used = toInt64(storage.value(QLatin1String("size")));
    const qint64 capacity = toInt64(storage.value(QLatin1String("capacity")));
    return QStringLiteral("Store %1 / %2  %3")
        .arg(humanSize(used), humanSize(capacity),
             rateOr(storage.value(QLatin1String("userate")), used, capacity));
}

QStringList groupLines(const QJsonObject& groups)
{
    int nameWidth = 0;
    for (auto it = groups.begin(); it != groups.end(); ++it)
        nameWidth = qMax(nameWidth, qMin(16, ctlTextWidth(it.key())));
    QStringList lines;
    for (auto it = groups.begin(); it != groups.end(); ++it) {
        const QJsonObject group = it.value().toObject();
        const qint64 size = toInt64(group.value(QLatin1String("size")));
        const qint64 free = toInt64(group.value(QLatin1String("free")));
        lines << QStringLiteral("  %1  %2 / %3  %4  free %5")
                     .arg(padRight(it.key(), nameWidth), humanSize(size - free), humanSize(size),
                          share(size - free, size), humanSize(free));
    }
    return lines;
}

QString tasksLine(const QJsonObject& process)
{
    QStringList counts;
    for (const char* key : {"total", "running", "sleeping", "stoped", "zombie"})
        counts << QString::number(toInt64(process.value(QLatin1String(key))));
    return QStringLiteral("Tasks %1 total, %2 running, %3 sleeping, %4 stopped, %5 zombie")
        .arg(counts.at(0), counts.at(1), counts.at(2), counts.at(3), counts.at(4));
}

QString processRow(const QString& pid, const QString& user, const QString& cpu, const QString& mem,
                   const QString& command)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(padLeft(pid, 7), padRight(user, 8), padLeft(cpu, 5), padLeft(mem, 5), command);
}

QString processRow(const QJsonObject& p)
{
    return processRow(textOf(p.value(QLatin1String("pid"))), textOf(p.value(QLatin1String("user"))),
                      textOf(p.value(QLatin1String("cpu"))), textOf(p.value(QLatin1String("mem"))),
                      textOf(p.value(QLatin1String("command"))));
}

// Whatever the event carries, the time first and the description last.
QString eventLine(const QJsonObject& event)
{
    QStringList parts;
    for (const char* key : {"timestamp", "datetime", "time"}) {
        const QString time = textOf(event.value(QLatin1String(key)));
        if (!time.isEmpty()) {
            parts << time;
            break;
        }
    }
    for (const char* key :
         {"level", "username", "ipaddr", "appname", "devicename", "description"}) {
        const QString value = textOf(event.value(QLatin1String(key))).trimmed();
        if (!value.isEmpty())
            parts << value;
    }
    return parts.join(QStringLiteral("  "));
}

QStringList fitted(const QStringList& lines, int width, int height)
{
    QStringList frame;
    for (int i = 0; i < lines.size() && i < height; ++i)
        frame << ctlFitLine(lines.at(i), width);
    return frame;
}

QStringList renderResults(const QJsonObject& r, int width, int height)
{
    const QJsonObject process = objectAt(r, "process");
    const QJsonArray processes = process.value(QLatin1String("processes")).toArray();
    const QJsonArray logs = r.value(QLatin1String("logs")).toArray();
    QStringList lines{headerLine(r), cpuLine(objectAt(r, "cpu"))};
    lines << memoryLines(objectAt(r, "memory")) << networkLine(objectAt(r, "network"), width)
          << diskLine(objectAt(r, "disk"));
    const QJsonObject storage = objectAt(r, "storage");
    lines << storageLine(storage);
    // Group lines only where the tasks line, the table's header and a few processes still fit.
    const int groupRoom = height - lines.size() - 2 - qMin(kMinProcessRows, int(processes.size()));
    lines << groupLines(objectAt(storage, "vgs")).mid(0, qMax(0, groupRoom));
    lines << tasksLine(process);

    const int left = height - lines.size();
    int events = 0;
    if (!logs.isEmpty() && left >= 1 + kEventRowsRoom + 2)
        events = std::min({int(logs.size()), kMaxEvents, left - 1 - kEventRowsRoom - 1});
    if (left > 0)
        lines << processRow(QStringLiteral("PID"), QStringLiteral("USER"), QStringLiteral("%CPU"),
                            QStringLiteral("%MEM"), QStringLiteral("COMMAND"));
    const int rows = left - 1 - (events > 0 ? events + 1 : 0);
    for (int i = 0; i < rows && i < processes.size(); ++i)
        lines << processRow(processes.at(i).toObject());
    if (events > 0) {
        lines << QStringLiteral("Recent events");
        for (int i = 0; i < events; ++i)
            lines << eventLine(logs.at(i).toObject());
    }
    return fitted(lines, width, height);
}

} // namespace

int ctlTextWidth(const QString& text)
{
    int columns = 0;
    forEachShown(text, [&columns](const QString&, int width) { columns += width; });
    return columns;
}

QString ctlFitLine(const QString& text, int width)
{
    QString shown;
    int columns = 0;
    bool full = false;
    forEachShown(text, [&](const QString& piece, int pieceWidth) {
        if (full || columns + pieceWidth > width) {
            full = true;
            return;
        }
        shown += piece;
        columns += pieceWidth;
    });
    return shown;
}

QStringList renderTop(const QJsonObject& answer, int width, int height)
{
    // The same rule as the plain client: only a numeric 0 or no "err" is success.
    const QJsonValue err = answer.value(QLatin1String("err"));
    if (!err.isUndefined() && !(err.isDouble() && err.toDouble() == 0)) {
        QString line = QStringLiteral("nasbrolt answered error ") + jsonToString(err);
        const QString meaning = ctlErrMeaning(err, QStringLiteral("system_lookout"));
        if (!meaning.isEmpty())
            line += QStringLiteral(": ") + meaning;
        const QString errmsg = textOf(answer.value(QLatin1String("errmsg")));
        if (!errmsg.isEmpty())
            line += QStringLiteral(": ") + errmsg;
        return renderTopMessage(line, width, height);
    }
    const QJsonObject results = objectAt(answer, "results");
    if (results.isEmpty())
        return renderTopMessage(QStringLiteral("waiting for the first sample"), width, height);
    return renderResults(results, width, height);
}

QStringList renderTopMessage(const QString& message, int width, int height)
{
    return fitted(QStringList{QStringLiteral("nasbroltctl top")} +
                      message.split(QLatin1Char('\n'), Qt::SkipEmptyParts),
                  width, height);
}
