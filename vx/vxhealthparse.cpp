#include "vx/vxhealthparse.h"

#include "gx2/gx2utils.h"

#include <QStringList>

namespace {

QStringList wordsOf(const QString& line)
{
    return line.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

// smartctl writes raw values as JSON numbers; anything else counts as 0.
qint64 rawOf(const QJsonValue& value)
{
    return value.isDouble() ? toInt64(value) : 0;
}

QJsonObject smartRow(int id, const QString& name, int value, int worst, int thresh, qint64 raw,
                     int status)
{
    static const char* const labels[] = {"warn", "-", "ok"};
    return QJsonObject{{QStringLiteral("ID"), id},
                       {QStringLiteral("ATTRIBUTE_NAME"), name},
                       {QStringLiteral("VALUE"), value},
                       {QStringLiteral("WORST"), worst},
                       {QStringLiteral("THRESH"), thresh},
                       {QStringLiteral("RAW_VALUE"), raw},
                       {QStringLiteral("status"), status},
                       {QStringLiteral("STATUS"), QLatin1String(labels[status + 1])}};
}

} // namespace

int smartVerdict(int id, qint64 raw, int thresh)
{
    // Error counters that must stay at zero are looked at before the
    // threshold rule.
    switch (id) {
    case 10:
    case 11:
    case 198:
        return raw != 0 ? -1 : 1;
    case 5:
    case 184:
    case 187:
    case 188:
    case 191:
    case 196:
    case 197:
    case 201:
        return raw > thresh ? -1 : 1;
    default:
        return 0;
    }
}

void smartRowsOf(QJsonArray& rows, const QJsonObject& report, bool nvme)
{
    if (nvme) {
        const QJsonObject log =
            report.value(QLatin1String("nvme_smart_health_information_log")).toObject();
        for (auto it = log.begin(); it != log.end(); ++it)
            rows.append(smartRow(0, it.key(), 0, 0, 0, rawOf(it.value()), 0));
        return;
    }
    const QJsonArray table = report.value(QLatin1String("ata_smart_attributes"))
                                 .toObject()
                                 .value(QLatin1String("table"))
                                 .toArray();
    for (const QJsonValue& entry : table) {
        const QJsonObject a = entry.toObject();
        const int id = toInt(a.value(QLatin1String("id")));
        const int thresh = toInt(a.value(QLatin1String("thresh")));
        const qint64 raw =
            rawOf(a.value(QLatin1String("raw")).toObject().value(QLatin1String("value")));
        rows.append(smartRow(
            id, a.value(QLatin1String("name")).toString(), toInt(a.value(QLatin1String("value"))),
            toInt(a.value(QLatin1String("worst"))), thresh, raw, smartVerdict(id, raw, thresh)));
    }
}

bool temperatureOf(double& celsius, const QString& output)
{
    bool found = false;
    const QStringList lines = output.trimmed().split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const QStringList words = wordsOf(line);
        QString reading;
        if (words.size() >= 10 && words.at(1) == QLatin1String("Temperature_Celsius"))
            reading = words.at(9);
        else if (words.size() >= 3 && words.at(0) == QLatin1String("Temperature:") &&
                 words.at(2) == QLatin1String("Celsius"))
            reading = words.at(1);
        else
            continue;
        bool ok = false;
        const double value = reading.toDouble(&ok);
        if (ok) {
            celsius = value;
            found = true;
        }
    }
    return found;
}

bool totalSpeedOf(QJsonObject& speeds, const QString& output)
{
    const QStringList lines = output.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        if (!line.startsWith(QLatin1String("Total DISK READ:")))
            continue;
        // Total DISK READ: <n> <unit> | Total DISK WRITE: <n> <unit>
        const QStringList words = wordsOf(line);
        bool readOk = false;
        bool writeOk = false;
        const double read = words.value(3).toDouble(&readOk);
        const double write = words.value(9).toDouble(&writeOk);
        if (words.size() < 11 || !readOk || !writeOk)
            return false;
        // toInt64 truncates and clamps what no integer can hold.
        speeds.insert(QStringLiteral("read_speed"),
                      toInt64(QJsonValue(read * double(asUnitSpeed(words.at(4))))));
        speeds.insert(QStringLiteral("write_speed"),
                      toInt64(QJsonValue(write * double(asUnitSpeed(words.at(10))))));
        return true;
    }
    return false;
}
