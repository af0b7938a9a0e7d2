#include "gx2/gx2lfqueue.h"
#include "gx2/gx2logger.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

std::string s(const QString& text)
{
    return text.toStdString();
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList readLines(const QString& path)
{
    QStringList lines = QString::fromUtf8(readAll(path)).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

void put(const QString& path, const QByteArray& data)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
}

QString hhmmss(const QDateTime& t)
{
    return t.toString(QStringLiteral("HHmmss"));
}

class LoggerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(tmp.isValid());
        path = tmp.filePath(QStringLiteral("app.log"));
        log.setFilePath(path);
    }

    // The rolled-aside files in the temporary directory.
    QStringList rolled() const
    {
        return QDir(tmp.path()).entryList({QStringLiteral("app.*.log")}, QDir::Files);
    }

    QTemporaryDir tmp;
    QString path;
    GX2Logger log;
};

} // namespace

TEST(GX2LFQueueTest, ProducersAndConsumerRunTogether)
{
    constexpr int kProducers = 6;
    constexpr int kEach = 20000;
    GX2LFQueue<std::pair<int, int>> queue;
    std::pair<int, int> item;
    EXPECT_FALSE(queue.dequeue(item));
    EXPECT_TRUE(queue.isEmpty());

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&queue, p] {
            for (int n = 0; n < kEach; ++n)
                queue.enqueue({p, n});
        });
    std::vector<int> next(kProducers, 0);
    int received = 0;
    bool ordered = true;
    while (received < kProducers * kEach) {
        if (!queue.dequeue(item))
            continue;
        ordered = ordered && item.second == next[item.first];
        next[item.first] = item.second + 1;
        ++received;
    }
    for (std::thread& t : producers)
        t.join();
    EXPECT_TRUE(ordered);
    EXPECT_EQ(next, std::vector<int>(kProducers, kEach));
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.dequeue(item));

    // Leftovers are the destructor's to free (the sanitizer builds check).
    GX2LFQueue<QString> leftovers;
    leftovers.enqueue(QStringLiteral("a"));
    EXPECT_FALSE(leftovers.isEmpty());
}

TEST_F(LoggerTest, LineLayout)
{
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    EXPECT_EQ(log.write(QStringLiteral("plain"), 1, QString(), QString(), -1), "plain");
    const qint64 after = QDateTime::currentSecsSinceEpoch();
    log.write("from bytes\n\n", 2, QStringLiteral("s"), QStringLiteral("f"), 12);
    log.write(QByteArray("  inner  space \r\n"), 3, QString(), QStringLiteral("g"), 0);
    log.write(QJsonValue(42), 4);
    log.write(QJsonObject{{QStringLiteral("k"), 1}}, 5, QStringLiteral("s2"));

    const QStringList lines = readLines(path);
    ASSERT_EQ(lines.size(), 7) << s(lines.join(QLatin1Char('|')));
    const QStringList plain = lines[0].split(QLatin1Char('\t'));
    ASSERT_EQ(plain.size(), 3);
    const QRegularExpression stamp(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.(\\d{3})$"));
    const QRegularExpressionMatch m = stamp.match(plain[0]);
    ASSERT_TRUE(m.hasMatch()) << s(plain[0]);
    // The last stamp field counts seconds, not milliseconds.
    const int zzz = m.captured(1).toInt();
    EXPECT_TRUE(zzz == before % 1000 || zzz == after % 1000) << zzz;
    EXPECT_EQ(plain.mid(1), QStringList({QStringLiteral("[INFO]"), QStringLiteral("plain")}));

    auto rest = [&](int i) { return s(lines[i].section(QLatin1Char('\t'), 1)); };
    EXPECT_EQ(rest(1), "[WARN]\tf#12\ts\tfrom bytes");
    EXPECT_EQ(rest(2), "[ERROR]\tg\t  inner  space");
    EXPECT_EQ(rest(3), "[TRACE]"); // a JSON scalar is written as empty text
    EXPECT_EQ(rest(4), "[FATAL]\ts2\t{");
    EXPECT_EQ(s(lines.mid(5).join(QLatin1Char('|'))), "    \"k\": 1|}");
}

TEST_F(LoggerTest, TagTableAndStartLevel)
{
    log.write("below the default start level 0", -1);
    log.setStartLevel(-2);
    for (int level = -2; level <= 14; ++level)
        log.write(QString::number(level), level);
    log.setStartLevel(3);
    EXPECT_EQ(log.write("dropped", 2), "dropped");
    log.write("kept", 3);

    QStringList got;
    for (const QString& line : readLines(path))
        got << line.section(QLatin1Char('\t'), 1);
    const QStringList want =
        QStringLiteral("[DEBUG]\t-2|[DEBUG]\t-1|[DEBUG]\t0|[INFO]\t1|[WARN]\t2|"
                       "[ERROR]\t3|[TRACE]\t4|[FATAL]\t5|[DEBUG]\t6|[DEBUG]\t7|"
                       "[DEBUG]\t8|[DEBUG]\t9|[DEBUG]\t10|[MEM-TRACE]\t11|"
                       "[DEBUG]\t12|[DB]\t13|[DEBUG]\t14|[ERROR]\tkept")
            .split(QLatin1Char('|'));
    EXPECT_EQ(s(got.join(QLatin1Char('|'))), s(want.join(QLatin1Char('|'))));
}

TEST_F(LoggerTest, FileNames)
{
    log.consult(QStringLiteral("sub/nasbrolt.tar.json"));
    EXPECT_EQ(s(log.filePath()), s(QDir::currentPath() + QStringLiteral("/sub/nasbrolt.tar.log")));
    log.consultWidthStartupStamp(QStringLiteral("/var/log/nasbrolt.json"));
    const QRegularExpression stamped(QStringLiteral("^/var/log/nasbrolt_\\d{12}\\.log$"));
    EXPECT_TRUE(stamped.match(log.filePath()).hasMatch()) << s(log.filePath());
    EXPECT_EQ(log.fileStamp().left(3),
              QDateTime::currentDateTime().toString(QStringLiteral("_yy")));
}

TEST_F(LoggerTest, RollsOnlyAboveMaxSize)
{
    log.setMaxSize(100);
    put(path, QByteArray(100, 'a'));
    log.write("at limit");
    EXPECT_TRUE(rolled().isEmpty());
    EXPECT_TRUE(readAll(path).startsWith(QByteArray(100, 'a')));

    put(path, QByteArray(101, 'b'));
    const QDateTime before = QDateTime::currentDateTime();
    log.write("after roll");
    const QDateTime after = QDateTime::currentDateTime();
    ASSERT_EQ(rolled().size(), 1);
    const QString aside = rolled().first();
    EXPECT_TRUE(aside == QStringLiteral("app.%1.log").arg(hhmmss(before)) ||
                aside == QStringLiteral("app.%1.log").arg(hhmmss(after)))
        << s(aside);
    EXPECT_EQ(readAll(tmp.filePath(aside)), QByteArray(101, 'b'));
    ASSERT_EQ(readLines(path).size(), 1);
    EXPECT_TRUE(readLines(path).first().endsWith(QStringLiteral("\tafter roll")));

    log.setMaxSize(0); // never rolls
    put(path, QByteArray(1000, 'c'));
    log.write("unlimited");
    EXPECT_EQ(rolled().size(), 1);
}

TEST_F(LoggerTest, RollIntoTakenNameKeepsWritingTheBigFile)
{
    // The names a roll could pick during this test already exist, as after
    // an earlier roll within the same second.
    const QDateTime now = QDateTime::currentDateTime();
    for (int i = 0; i < 3; ++i)
        put(tmp.filePath(QStringLiteral("app.%1.log").arg(hhmmss(now.addSecs(i)))), "earlier");
    log.setMaxSize(10);
    put(path, QByteArray(11, 'x'));
    log.write("one");
    log.write("two");

    EXPECT_EQ(rolled().size(), 3);
    for (const QString& name : rolled())
        EXPECT_EQ(readAll(tmp.filePath(name)), QByteArray("earlier"));
    const QStringList lines = readLines(path);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith(QString(11, QLatin1Char('x'))));
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("\tone")));
    EXPECT_TRUE(lines[1].endsWith(QStringLiteral("\ttwo")));
}

TEST_F(LoggerTest, LinesWaitForAUsablePath)
{
    // A regular file where a directory should be: the log's directory cannot be made.
    const QString blocker = tmp.filePath(QStringLiteral("blocker"));
    put(blocker, "file");
    log.setFilePath(blocker + QStringLiteral("/logs/app.log"));
    log.write("first");
    log.write("second");
    EXPECT_FALSE(log.flush());
    ASSERT_TRUE(QFile::remove(blocker));
    log.write("third");
    QStringList lines = readLines(log.filePath());
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("first")));
    EXPECT_TRUE(lines[2].endsWith(QStringLiteral("third")));

    log.setFilePath(QString());
    log.write("no path yet");
    EXPECT_FALSE(log.flush());
    log.setFilePath(path);
    log.write("path set");
    lines = readLines(path);
    ASSERT_EQ(lines.size(), 2);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("\tno path yet")));
    EXPECT_TRUE(log.flush());
}

class LoggerModeTest : public LoggerTest, public ::testing::WithParamInterface<bool>
{
};

// Lines from many threads arrive whole, each thread's in its own order.
TEST_P(LoggerModeTest, ConcurrentWritersLoseNothing)
{
    constexpr int kThreads = 8;
    constexpr int kEach = 2000;
    log.setThreadMode(GetParam());
    const QString padding(200, QLatin1Char('p'));
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([&, t] {
            for (int n = 0; n < kEach; ++n)
                log.write(QStringLiteral("%1 %2 %3").arg(t).arg(n).arg(padding), 1,
                          QStringLiteral("w"));
        });
    for (std::thread& w : writers)
        w.join();
    ASSERT_TRUE(log.flush());

    const QRegularExpression shape(
        QStringLiteral("^[-0-9 :.]{23}\\t\\[INFO\\]\\tw\\t(\\d) (\\d+) ") + padding +
        QLatin1Char('$'));
    std::vector<int> next(kThreads, 0);
    int bad = 0;
    for (const QString& line : readLines(path)) {
        const QRegularExpressionMatch m = shape.match(line);
        const int t = m.hasMatch() ? m.captured(1).toInt() : -1;
        if (t < 0 || t >= kThreads || m.captured(2).toInt() != next[t]++)
            ++bad;
    }
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

INSTANTIATE_TEST_SUITE_P(DrainModes, LoggerModeTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "ThreadMode" : "CallerThread";
                         });
