#include "gx2/gx2utils.h"

namespace {

bool allDigits(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

} // namespace

QDateTime toDateTime(qint64 secsSinceEpoch)
{
    // Qt counts milliseconds in 64 bits; beyond the year 9999 the product
    // would overflow, and no caller means such a time.
    constexpr qint64 kLastSecond = 253402300799; // 9999-12-31 23:59:59 UTC
    if (secsSinceEpoch > kLastSecond || secsSinceEpoch < -kLastSecond)
        return QDateTime();
    return QDateTime::fromSecsSinceEpoch(secsSinceEpoch, Qt::LocalTime);
}

QDateTime toDateTime(const QString& text)
{
    // Front ends send the clock as text or as epoch seconds in a string.
    if (allDigits(text)) {
        bool ok = false;
        const qint64 secs = text.toLongLong(&ok);
        return ok ? toDateTime(secs) : QDateTime();
    }
    static const QStringList layouts{
        QStringLiteral("yyyy-MM-dd HH:mm:ss"), QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"),
        QStringLiteral("yyyy-MM-dd HH:mm"), QStringLiteral("yyyy/MM/dd HH:mm:ss")};
    for (const QString& layout : layouts) {
        const QDateTime dt = QDateTime::fromString(text, layout);
        if (dt.isValid())
            return dt;
    }
    return QDateTime();
}

QDateTime toDateTime(const QJsonValue& value)
{
    if (value.isDouble())
        return toDateTime(toInt64(value));
    if (value.isString())
        return toDateTime(value.toString());
    return QDateTime();
}

QDate toDate(const QString& text)
{
    for (const QString& layout : {QStringLiteral("yyyy-MM-dd"), QStringLiteral("yyyy/MM/dd")}) {
        const QDate date = QDate::fromString(text, layout);
        if (date.isValid())
            return date;
    }
    return toDateTime(text).date();
}

QString secsToTimes(qint64 secs)
{
    const qint64 total = qMax<qint64>(secs, 0);
    const qint64 days = total / 86400;
    const QString clock = QStringLiteral("%1:%2:%3")
                              .arg((total % 86400) / 3600, 2, 10, QLatin1Char('0'))
                              .arg((total % 3600) / 60, 2, 10, QLatin1Char('0'))
                              .arg(total % 60, 2, 10, QLatin1Char('0'));
    return days > 0 ? QStringLiteral("%1d ").arg(days) + clock : clock;
}
