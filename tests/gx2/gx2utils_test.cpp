#include "gx2/gx2utils.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <climits>

namespace {

std::string s(const QString& text)
{
    return text.toStdString();
}

template <typename In, typename Out> using Table = std::vector<std::pair<In, Out>>;

} // namespace

TEST(Gx2Utils, TruthOfTextsAndJsonValues)
{
    // isTrue of a JSON string follows toBool: an integer above 0 or a word, untrimmed.
    const Table<const char*, bool> texts{{"OK", true},  {"10", true},   {"no", false},  {"", false},
                                         {"-1", false}, {"0.5", false}, {" yes", false}};
    for (const auto& [text, truth] : texts) {
        EXPECT_EQ(toBool(QString(text)), truth) << text;
        EXPECT_EQ(isTrue(QJsonValue(text)), truth) << text;
    }
    const Table<QJsonValue, bool> values{
        {0.5, true}, {true, true}, {-3, false}, {QJsonArray{1}, false}};
    for (const auto& [value, truth] : values)
        EXPECT_EQ(isTrue(value), truth) << s(jsonToString(value));
}

TEST(Gx2Utils, NumbersAreReadLeniently)
{
    // Decimal first, hexadecimal only for short codes; the fallback 7 stands only for
    // values that carry no number at all.
    const Table<QJsonValue, int> ints{
        {"10", 10},         {"-12", -12},      {"1a", 26},        {"ff", 255}, {"12abc", 0},
        {"99999999999", 0}, {"zzz", 0},        {false, 0},        {2.9, 2},    {-2.9, -2},
        {1e20, INT_MAX},    {QJsonValue(), 7}, {QJsonArray{3}, 7}};
    for (const auto& [value, expected] : ints)
        EXPECT_EQ(toInt(value, 7), expected) << s(jsonToString(value));
    EXPECT_EQ(toInt64(QJsonValue("5000000000")), Q_INT64_C(5000000000));
    EXPECT_DOUBLE_EQ(toDouble(QJsonValue("2.5"), 9), 2.5);
    EXPECT_DOUBLE_EQ(toDouble(QJsonValue("2,5"), 9), 0.0);
    EXPECT_DOUBLE_EQ(toDouble(QJsonObject(), 0.25), 0.25);
}

TEST(Gx2Utils, TextFormsOfNumbersAndSizes)
{
    const Table<QJsonValue, const char*> texts{
        {3, "3"}, {2.5, "2.500000"}, {8e12, "8000000000000"}, {"abc", "abc"}, {true, ""}};
    for (const auto& [value, text] : texts)
        EXPECT_EQ(s(toString(value)), text);
    EXPECT_EQ(s(toString(1e20)), "100000000000000000000.000000");
    const Table<qint64, const char*> sizes{
        {0, "0 B"},        {1023, "1023 B"},     {1024, "1 KB"},      {1048575, "1023 KB"},
        {1048576, "1 MB"}, {1610612736, "1 GB"}, {1ll << 40, "1 TB"}, {3ll << 50, "3072 TB"}};
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(s(capacitySize(bytes)), text);
}

TEST(Gx2Utils, VersionOrdering)
{
    // compareVersion gives the first difference itself. cmpVersion orders Debian versions:
    // the epoch first, a tilde before nothing, digits as numbers.
    const Table<const char*, int> plain{
        {"1.10 1.9", 1}, {"2 2.0.0", 0}, {"1.2 1.5", -3}, {"1.x.3 1.0.1", 2}};
    const Table<const char*, int> debian{{"1.2.3-1 1.2.3-1", 0}, {"1:1.0 9.9", 1},
                                         {"1.0~rc1 1.0", -1},    {"2.10-1 2.9-3", 1},
                                         {"5.0~~ 5.0~", -1},     {"1.0+b1 1.0", 1}};
    for (const auto& [versions, expected] : plain) {
        const QStringList ab = QString(versions).split(' ');
        EXPECT_EQ(compareVersion(ab[0], ab[1]), expected) << versions;
    }
    for (const auto& [versions, expected] : debian) {
        const QStringList ab = QString(versions).split(' ');
        const int r = cmpVersion(ab[0], ab[1]);
        EXPECT_EQ((r > 0) - (r < 0), expected) << versions;
    }
}

TEST(Gx2Utils, JsonMergeAndText)
{
    QJsonObject to =
        QJsonDocument::fromJson(R"({"a":1,"n":{"x":1,"y":2},"l":[1,2],"s":{"k":1}})").object();
    jsonMerge(to,
              QJsonDocument::fromJson(R"({"b":2,"n":{"y":3,"z":4},"l":[9],"s":"flat"})").object());
    EXPECT_EQ(s(jsonToString(to)), R"({"a":1,"b":2,"l":[9],"n":{"x":1,"y":3,"z":4},"s":"flat"})");

    EXPECT_EQ(toJsonValue("12"), QJsonValue(12));
    EXPECT_TRUE(toJsonValue("nope").isUndefined());
    EXPECT_TRUE(toJsonValue("1,2").isUndefined()); // two values, not one
    EXPECT_EQ(s(jsonToString(QJsonValue("q\""))), R"("q\"")");
    EXPECT_EQ(s(jsonToString(QJsonValue::Undefined)), "");
}

TEST(Gx2Utils, Ipv4Addresses)
{
    for (const char* bad : {"192.168.0.256", "192.168.01.1", "1.2.3.+4", "1.2.3", "1.2.3.4."})
        EXPECT_FALSE(ipv4Valid(bad)) << bad;
    EXPECT_TRUE(ipv4Valid("192.168.0.255"));
}

TEST(Gx2Utils, DateTimesFromTextsAndNumbers)
{
    const QDateTime expected(QDate(2024, 3, 5), QTime(6, 7, 8), Qt::LocalTime);
    for (const char* text : {"2024-03-05 06:07:08", "2024-03-05T06:07:08", "2024/03/05 06:07:08"})
        EXPECT_EQ(toDateTime(QString(text)), expected) << text;
    EXPECT_EQ(toDateTime(QString("2024-03-05 06:07")), expected.addSecs(-8));
    EXPECT_EQ(toDateTime(QJsonValue("2024-03-05 06:07:08")), expected);

    for (const char* bad : {"", "2024-03-05", "2024-13-05 06:07:08", "05.03.2024 06:07",
                            "2024-03-05 06:07:08 ", "-86400"})
        EXPECT_FALSE(toDateTime(QString(bad)).isValid()) << bad;
    EXPECT_FALSE(toDateTime(QJsonValue(true)).isValid());
    EXPECT_FALSE(toDateTime(QJsonValue(1e300)).isValid());

    const QDateTime epochDay = QDateTime::fromSecsSinceEpoch(86400);
    EXPECT_EQ(toDateTime(QJsonValue(86400)), epochDay);
    EXPECT_EQ(toDateTime(QJsonValue("86400")), epochDay);
    EXPECT_EQ(toDate("2024-03-05 23:59"), QDate(2024, 3, 5));
}
