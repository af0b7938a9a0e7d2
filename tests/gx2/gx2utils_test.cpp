#include "gx2/gx2utils.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <climits>

namespace {

std::string s(const QString& text)
{
    return text.toStdString();
}

QJsonValue str(const char* text)
{
    return QJsonValue(QString::fromUtf8(text));
}

} // namespace

TEST(Gx2Utils, TruthOfTextsAndJsonValues)
{
    EXPECT_TRUE(toBool(QStringLiteral("OK")));
    EXPECT_TRUE(toBool(QStringLiteral("10")));
    EXPECT_FALSE(toBool(QStringLiteral("no")));
    EXPECT_FALSE(toBool(QString()));
    EXPECT_FALSE(toBool(QStringLiteral("-1")));
    EXPECT_FALSE(toBool(QStringLiteral(" yes"))); // not trimmed

    EXPECT_TRUE(isTrue(QJsonValue(0.5)));
    EXPECT_FALSE(isTrue(str("0.5"))); // neither an integer above 0 nor a word
    EXPECT_TRUE(isTrue(str("yes")));
    EXPECT_FALSE(isTrue(QJsonValue(-3)));
    EXPECT_FALSE(isTrue(QJsonValue(QJsonArray{1})));
    EXPECT_FALSE(isTrue(QJsonValue()));
}

TEST(Gx2Utils, IntegersAreReadLeniently)
{
    EXPECT_EQ(toInt(str("12abc")), 0); // too long to be a short hex code
    EXPECT_EQ(toInt(str("1a")), 26);
    EXPECT_EQ(toInt(str("ff")), 255);
    EXPECT_EQ(toInt(QJsonValue(2.9)), 2);
    EXPECT_EQ(toInt(QJsonValue(-2.9)), -2);
    EXPECT_EQ(toInt(QJsonValue(1e20)), INT_MAX);
    EXPECT_EQ(toInt(str("99999999999")), 0); // out of range, not wrapped

    // The fallback stands only for values that carry no number at all.
    EXPECT_EQ(toInt(QJsonValue(), 7), 7);
    EXPECT_EQ(toInt(QJsonValue(QJsonArray{3}), 7), 7);
    EXPECT_EQ(toInt(str("zzz"), 7), 0);
    EXPECT_EQ(toInt(QJsonValue(false), 7), 0);

    EXPECT_EQ(toInt64(str("5000000000")), Q_INT64_C(5000000000));
    EXPECT_EQ(toInt64(QJsonValue(), -1), -1);
    EXPECT_DOUBLE_EQ(toDouble(str("2.5")), 2.5);
    EXPECT_DOUBLE_EQ(toDouble(str("2,5")), 0.0);
    EXPECT_DOUBLE_EQ(toDouble(QJsonValue(QJsonObject()), 0.25), 0.25);
}

TEST(Gx2Utils, TextFormsOfNumbersAndSizes)
{
    EXPECT_EQ(s(toString(QJsonValue(3))), "3");
    EXPECT_EQ(s(toString(QJsonValue(2.5))), "2.500000");
    EXPECT_EQ(s(toString(QJsonValue(1e20))), "100000000000000000000.000000");
    EXPECT_EQ(s(toString(QJsonValue(8e12))), "8000000000000");
    EXPECT_EQ(s(toString(str("abc"))), "abc");

    EXPECT_EQ(s(capacitySize(0)), "0 B");
    EXPECT_EQ(s(capacitySize(1023)), "1023 B");
    EXPECT_EQ(s(capacitySize(1024)), "1 KB");
    EXPECT_EQ(s(capacitySize(1048575)), "1023 KB");
    EXPECT_EQ(s(capacitySize(1610612736)), "1 GB");
    EXPECT_EQ(s(capacitySize(Q_INT64_C(1) << 40)), "1 TB");
    EXPECT_EQ(s(capacitySize(Q_INT64_C(3) << 50)), "3072 TB");

    EXPECT_EQ(s(secsToTimes(0)), "00:00:00");
    EXPECT_EQ(s(secsToTimes(90061)), "1d 01:01:01");
    EXPECT_EQ(s(secsToTimes(-5)), "00:00:00");
}

TEST(Gx2Utils, VersionOrdering)
{
    EXPECT_EQ(compareVersion(QStringLiteral("1.10"), QStringLiteral("1.9")), 1);
    EXPECT_EQ(compareVersion(QStringLiteral("2"), QStringLiteral("2.0.0")), 0);
    EXPECT_EQ(compareVersion(QStringLiteral("1.2"), QStringLiteral("1.5")), -3);
    EXPECT_EQ(compareVersion(QStringLiteral("1.x.3"), QStringLiteral("1.0.1")), 2);
    EXPECT_EQ(compareFourInt(QStringLiteral("3.0.0.1"), QStringLiteral("3")), 1);

    auto cmp = [](const char* a, const char* b) {
        return cmpVersion(QString::fromUtf8(a), QString::fromUtf8(b));
    };
    EXPECT_EQ(cmp("1.2.3-1", "1.2.3-1"), 0);
    EXPECT_GT(cmp("1:1.0", "9.9"), 0);    // the epoch outranks the rest
    EXPECT_LT(cmp("1.0~rc1", "1.0"), 0);  // a tilde sorts before nothing
    EXPECT_GT(cmp("2.10-1", "2.9-3"), 0); // digits compare as numbers
    EXPECT_LT(cmp("5.0~~", "5.0~"), 0);
}

TEST(Gx2Utils, JsonMergeAndText)
{
    QJsonObject to =
        QJsonDocument::fromJson(R"({"a":1,"n":{"x":1,"y":2},"l":[1,2],"s":{"k":1}})").object();
    const QJsonObject from =
        QJsonDocument::fromJson(R"({"b":2,"n":{"y":3,"z":4},"l":[9],"s":"flat"})").object();
    jsonMerge(to, from);
    EXPECT_EQ(s(jsonToString(to)), R"({"a":1,"b":2,"l":[9],"n":{"x":1,"y":3,"z":4},"s":"flat"})");

    EXPECT_EQ(toJsonValue("12").toInt(), 12);
    EXPECT_EQ(s(toJsonValue(R"("a b")").toString()), "a b");
    EXPECT_TRUE(toJsonValue(R"({"k":[1]})").isObject());
    EXPECT_TRUE(toJsonValue("nope").isUndefined());
    EXPECT_TRUE(toJsonValue("1],[2").isUndefined());
    EXPECT_EQ(s(jsonToString(QJsonValue(QStringLiteral("q\"")))), R"("q\"")");
    EXPECT_EQ(s(jsonToString(QJsonValue(QJsonValue::Undefined))), "");
}

TEST(Gx2Utils, ListsAndAddresses)
{
    const QJsonArray mixed{QStringLiteral("sda"), 7, true, QJsonValue(), 2.5};
    EXPECT_EQ(s(toStrings(mixed).join(QLatin1Char('|'))), "sda|7|2.500000");
    EXPECT_EQ(jarrayToInts(mixed), (QList<int>{0, 7, 1, 0, 2}));
    const QStringList a{QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("b"),
                        QStringLiteral("c")};
    EXPECT_EQ(s(intersect(a, {QStringLiteral("c"), QStringLiteral("b")}).join(QLatin1Char('|'))),
              "b|c");
    QStringList list{QStringLiteral("x")};
    EXPECT_EQ(s(takeFirstString(list)), "x");
    EXPECT_EQ(s(takeFirstString(list)), "");

    EXPECT_TRUE(ipv4Valid(QStringLiteral("192.168.0.255")));
    EXPECT_FALSE(ipv4Valid(QStringLiteral("192.168.0.256")));
    EXPECT_FALSE(ipv4Valid(QStringLiteral("192.168.01.1")));
    EXPECT_FALSE(ipv4Valid(QStringLiteral("1.2.3.+4")));
}

TEST(Gx2Utils, DateTimesFromTextsAndNumbers)
{
    const QDateTime expected(QDate(2024, 3, 5), QTime(6, 7, 8), Qt::LocalTime);
    EXPECT_EQ(toDateTime(QStringLiteral("2024-03-05 06:07:08")), expected);
    EXPECT_EQ(toDateTime(QStringLiteral("2024-03-05T06:07:08")), expected);
    EXPECT_EQ(toDateTime(QStringLiteral("2024/03/05 06:07:08")), expected);
    EXPECT_EQ(toDateTime(QStringLiteral("2024-03-05 06:07")), expected.addSecs(-8));
    EXPECT_EQ(toDateTime(str("2024-03-05 06:07:08")), expected);

    for (const char* bad : {"", "2024-03-05", "2024-13-05 06:07:08", "05.03.2024 06:07",
                            "2024-03-05 06:07:08 ", "-86400"})
        EXPECT_FALSE(toDateTime(QString::fromUtf8(bad)).isValid()) << bad;
    EXPECT_FALSE(toDateTime(QJsonValue(true)).isValid());
    EXPECT_FALSE(toDateTime(QJsonValue(1e300)).isValid());

    const QDateTime epochDay = QDateTime::fromSecsSinceEpoch(86400);
    EXPECT_EQ(toDateTime(QJsonValue(86400)), epochDay);
    EXPECT_EQ(toDateTime(str("86400")), epochDay);

    EXPECT_EQ(toDate(QStringLiteral("2024/03/05")), QDate(2024, 3, 5));
    EXPECT_EQ(toDate(QStringLiteral("2024-03-05 23:59")), QDate(2024, 3, 5));
    EXPECT_FALSE(toDate(QStringLiteral("yesterday")).isValid());
}
