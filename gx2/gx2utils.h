#pragma once

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

// Lenient conversions of request parameters. The front end sends the same
// switch as "1", 1, true or "yes", so every reader of a parameter goes
// through these functions and they must stay uniform.

// ---- values (gx2utils.cpp) ----

// True for a decimal integer above 0 or, ignoring case, "true", "yes", "ok",
// "y", "t". The text is not trimmed.
bool toBool(const QString& text);
bool isTrue(const QString& text);
// Bool as is, number above 0.0, string by toBool(text); anything else false.
bool isTrue(const QJsonValue& value);
bool toBool(const QJsonValue& value);

// Number truncated toward zero (clamped to the int range), bool 1/0, string
// as decimal, else as hexadecimal of at most four digits without prefix
// ("ff" is 255, "12abc" is 0), else 0. The fallback replaces the 0 of
// null, array, object and undefined values.
int toInt(const QJsonValue& value);
int toInt(const QJsonValue& value, int fallback);
// The same rules with the 64-bit range: disk sizes exceed int.
qint64 toInt64(const QJsonValue& value);
qint64 toInt64(const QJsonValue& value, qint64 fallback);
// Number as is, bool 1/0, string read as a decimal number (C locale), else
// 0; the fallback replaces the 0 of null, array, object and undefined.
double toDouble(const QJsonValue& value);
double toDouble(const QJsonValue& value, double fallback);
// a + b, stopping at the end of the range instead of overflowing: sums of
// sizes and rates read from tools that may print anything.
qint64 cappedSum(qint64 a, qint64 b);

// Whole number (within 64 bits) as an integer text, other numbers with six
// decimals, a string as is, anything else empty.
QString toString(const QJsonValue& value);
// Integer with the default locale's grouping ("%L1"), then suffix.
QString toStrOfInt(qint64 value, const QString& suffix = QString());

// Whole units of 1024 powers labelled B, KB, MB, GB, TB; fractions dropped.
QString capacitySize(qint64 bytes);
// Bytes per second of a rate unit, case ignored: "B/s" 1, "K/s" 1024 ... "P/s" 1024^5; others 1.
qint64 asUnitSpeed(const QString& unit);
// A size as LVM prints it ("<1.50g", "4194304B"): trimmed, a leading "<" or
// ">" dropped, the last character a unit of b s k m g t p e (case ignored;
// none means bytes), the number read as a double; 0 when unreadable.
qint64 asCapacity(const QString& text);

// Dotted versions compared component by component as decimal integers
// (missing or unreadable components are 0). The result is the difference of
// the first differing components, not just its sign.
int compareVersion(const QString& a, const QString& b);
int compareFourInt(const QString& a, const QString& b);
// Debian package versions, ordered by libapt-pkg.
int cmpVersion(const QString& a, const QString& b);

// Four dotted decimal fields 0..255 without leading zeros or blanks.
bool ipv4Valid(const QString& text);
// Lower-case hexadecimal MD5 of data.
QString md5hex(const QByteArray& data);
// Raw HMAC-SHA1 of message under key.
QByteArray hmacSha1(const QByteArray& key, const QByteArray& message);

// ---- JSON and lists (gx2utilsjson.cpp) ----

// Merges from into to and returns to: keys of from replace those of to,
// except that two objects under the same key are merged the same way.
// Arrays are replaced, never concatenated.
QJsonObject& jsonMerge(QJsonObject& to, const QJsonObject& from);
// Any JSON text (object, array or a bare scalar) as a value; text that is
// not valid JSON gives an undefined value.
QJsonValue toJsonValue(const QByteArray& json);
// Compact JSON text of a value (strings quoted); undefined gives "".
QString jsonToString(const QJsonValue& value, bool indented = false);
QJsonArray toJsonArray(const QStringList& texts);
QJsonArray toJsonArray(const QList<int>& numbers);
// Elements with a text form (strings, numbers) by toString; others are left out.
QStringList toStrings(const QJsonArray& array);
// Each element read as toInt reads it.
QList<int> toInts(const QStringList& texts);
QList<int> jarrayToInts(const QJsonArray& array);
// Elements of a also in b, in the order of a, without repeats.
QStringList intersect(const QStringList& a, const QStringList& b);
// First or last element, "" for an empty list; take removes it.
QString takeFirstString(QStringList& list);
QString firstString(const QStringList& list);
QString lastString(const QStringList& list);

// ---- dates and times (gx2utilstime.cpp), local time throughout ----

QDateTime toDateTime(qint64 secsSinceEpoch);
// "yyyy-MM-dd HH:mm:ss", "yyyy-MM-ddTHH:mm:ss", "yyyy-MM-dd HH:mm",
// "yyyy/MM/dd HH:mm:ss", or digits only read as seconds since the epoch;
// anything else gives an invalid date-time.
QDateTime toDateTime(const QString& text);
// A number is seconds since the epoch, a string as above, else invalid.
QDateTime toDateTime(const QJsonValue& value);
// "yyyy-MM-dd", "yyyy/MM/dd" or the date of toDateTime(text).
QDate toDate(const QString& text);
// Duration as "hh:mm:ss", with "<days>d " before it from one day on;
// negative durations read as 0.
QString secsToTimes(qint64 secs);
