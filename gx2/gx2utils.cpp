#include "gx2/gx2utils.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QVector>

#include <cmath>
#include <limits>

namespace {

// Truncation toward zero, clamped: a double outside the target range has no
// defined integer conversion.
template <typename Int> Int truncated(double number)
{
    const double t = std::trunc(number);
    if (t <= static_cast<double>(std::numeric_limits<Int>::min()))
        return std::numeric_limits<Int>::min();
    if (t >= static_cast<double>(std::numeric_limits<Int>::max()))
        return std::numeric_limits<Int>::max();
    return static_cast<Int>(t);
}

// Decimal first; hexadecimal only for short codes such as "ff", so that an
// identifier like "12abc" is not mistaken for a number.
bool readInteger(const QString& text, qint64& number)
{
    bool ok = false;
    number = text.toLongLong(&ok, 10);
    if (ok)
        return true;
    if (text.size() > 4)
        return false;
    number = text.toLongLong(&ok, 16);
    return ok;
}

template <typename Int> Int lenientInteger(const QJsonValue& value, Int fallback)
{
    if (value.isDouble())
        return truncated<Int>(value.toDouble());
    if (value.isBool())
        return value.toBool() ? 1 : 0;
    if (value.isString()) {
        qint64 number = 0;
        if (!readInteger(value.toString(), number))
            return 0;
        if (number < std::numeric_limits<Int>::min() || number > std::numeric_limits<Int>::max())
            return 0;
        return static_cast<Int>(number);
    }
    return fallback;
}

} // namespace

bool toBool(const QString& text)
{
    bool ok = false;
    if (text.toLongLong(&ok, 10) > 0 && ok)
        return true;
    static const QStringList words{QStringLiteral("true"), QStringLiteral("yes"),
                                   QStringLiteral("ok"), QStringLiteral("y"), QStringLiteral("t")};
    return words.contains(text, Qt::CaseInsensitive);
}

bool isTrue(const QString& text)
{
    return toBool(text);
}

bool isTrue(const QJsonValue& value)
{
    if (value.isBool())
        return value.toBool();
    if (value.isDouble())
        return value.toDouble() > 0.0;
    if (value.isString())
        return toBool(value.toString());
    return false;
}

bool toBool(const QJsonValue& value)
{
    return isTrue(value);
}

int toInt(const QJsonValue& value)
{
    return lenientInteger<int>(value, 0);
}

int toInt(const QJsonValue& value, int fallback)
{
    return lenientInteger<int>(value, fallback);
}

qint64 toInt64(const QJsonValue& value)
{
    return lenientInteger<qint64>(value, 0);
}

qint64 toInt64(const QJsonValue& value, qint64 fallback)
{
    return lenientInteger<qint64>(value, fallback);
}

double toDouble(const QJsonValue& value)
{
    return toDouble(value, 0.0);
}

double toDouble(const QJsonValue& value, double fallback)
{
    if (value.isDouble())
        return value.toDouble();
    if (value.isBool())
        return value.toBool() ? 1.0 : 0.0;
    if (value.isString()) {
        bool ok = false;
        const double number = value.toString().toDouble(&ok);
        return ok ? number : 0.0;
    }
    return fallback;
}

QString toString(const QJsonValue& value)
{
    if (value.isString())
        return value.toString();
    if (!value.isDouble())
        return QString();
    const double number = value.toDouble();
    const qint64 whole = truncated<qint64>(number);
    if (static_cast<double>(whole) == number && std::fabs(number) < 9.2e18)
        return QString::number(whole);
    return QString::number(number, 'f', 6);
}

QString toStrOfInt(qint64 value, const QString& suffix)
{
    return QStringLiteral("%L1").arg(value) + suffix;
}

QString capacitySize(qint64 bytes)
{
    static const struct
    {
        int shift;
        const char* unit;
    } steps[] = {{40, " TB"}, {30, " GB"}, {20, " MB"}, {10, " KB"}};
    for (const auto& step : steps) {
        if (bytes >= (qint64(1) << step.shift))
            return QString::number(bytes >> step.shift) + QLatin1String(step.unit);
    }
    return QString::number(bytes) + QStringLiteral(" B");
}

int compareVersion(const QString& a, const QString& b)
{
    const QStringList pa = a.split(QLatin1Char('.'));
    const QStringList pb = b.split(QLatin1Char('.'));
    for (int i = 0; i < qMax(pa.size(), pb.size()); ++i) {
        // toInt gives 0 both for a missing and for an unreadable component.
        const qint64 ca = pa.value(i).toInt();
        const qint64 cb = pb.value(i).toInt();
        if (ca != cb)
            return static_cast<int>(qBound<qint64>(std::numeric_limits<int>::min(), ca - cb,
                                                   std::numeric_limits<int>::max()));
    }
    return 0;
}

int compareFourInt(const QString& a, const QString& b)
{
    return compareVersion(a, b);
}

bool ipv4Valid(const QString& text)
{
    const QStringList fields = text.split(QLatin1Char('.'));
    if (fields.size() != 4)
        return false;
    for (const QString& field : fields) {
        if (field.isEmpty() || field.size() > 3 ||
            (field.size() > 1 && field.startsWith(QLatin1Char('0'))))
            return false;
        for (const QChar c : field) {
            if (c < QLatin1Char('0') || c > QLatin1Char('9'))
                return false;
        }
        if (field.toInt() > 255)
            return false;
    }
    return true;
}

QString md5hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QByteArray hmacSha1(const QByteArray& key, const QByteArray& message)
{
    return QMessageAuthenticationCode::hash(message, key, QCryptographicHash::Sha1);
}

qint64 cappedSum(qint64 a, qint64 b)
{
    qint64 sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        return b > 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
    return sum;
}
