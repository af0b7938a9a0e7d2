#include "gx2/gx2utils.h"

qint64 asUnitSpeed(const QString& unit)
{
    static const char* const units[] = {"b/s", "k/s", "m/s", "g/s", "t/s", "p/s"};
    const QString lower = unit.toLower();
    qint64 factor = 1;
    for (const char* known : units) {
        if (lower == QLatin1String(known))
            return factor;
        factor *= 1024;
    }
    return 1;
}

qint64 asCapacity(const QString& text)
{
    QString number = text.trimmed();
    if (number.startsWith(QLatin1Char('<')) || number.startsWith(QLatin1Char('>')))
        number.remove(0, 1);
    if (number.isEmpty())
        return 0;
    double factor = 1;
    const QChar unit = number.at(number.size() - 1).toLower();
    if (!unit.isDigit()) {
        // b is 1, s a 512-byte sector, then powers of 1024 from k on.
        const int index = QLatin1String("bskmgtpe").indexOf(unit);
        if (index < 0)
            return 0;
        factor = index == 1 ? 512 : 1;
        for (int i = 2; i <= index; ++i)
            factor *= 1024;
        number.chop(1);
    }
    bool ok = false;
    const double value = number.toDouble(&ok) * factor;
    if (!ok || value != value)
        return 0;
    // Clamped: a double beyond the 64-bit range has no integer to truncate to.
    const qint64 most = Q_INT64_C(9223372036854775807);
    if (value >= 9223372036854775807.0)
        return most;
    if (value <= -9223372036854775807.0)
        return -most;
    return qint64(value);
}
