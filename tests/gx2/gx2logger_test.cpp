#include "gx2/gx2file.h"
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

// The log's lines with their stamps cut off, joined by '|'.
std::string tails(const QString& path)
{
    static const QRegularExpression stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\t)",
                                          QRegularExpression::MultilineOption);
    QString text = QString::fromUtf8(GX2File::readAll(path));
    return text.remove(stamp).trimmed().replace('\n', '|').toStdString();
}

class LoggerTest : public ::testing::Test
{
protected:
    void SetUp() override { log.setFilePath(path); }

    // The files rolls made.
    QStringList rolled() const { return QDir(tmp.path()).entryList({"app.*.log"}); }

    QTemporaryDir tmp;
    const QString path = tmp.filePath("app.log");
    GX2Logger log;
};

} // namespace

TEST(GX2LFQueueTest, ProducersAndConsumerRunTogether)
{
    constexpr int kProducers = 6;
    constexpr int kEach = 20000;
    GX2LFQueue<std::pair<int, int>> queue;
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([&queue, p] {
            for (int n = 0; n < kEach; ++n)
                queue.enqueue({p, n});
        });
    // Each producer's items arrive whole and in its order.
    std::vector<int> next(kProducers, 0);
    int misordered = 0;
    std::pair<int, int> item;
    for (int received = 0; received < kProducers * kEach;) {
        if (queue.dequeue(item)) {
            misordered += item.second != next[item.first];
            next[item.first] = item.second + 1;
            ++received;
        }
    }
    for (std::thread& t : producers)
        t.join();
    EXPECT_EQ(misordered, 0);
    EXPECT_EQ(next, std::vector<int>(kProducers, kEach));
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.dequeue(item));

    GX2LFQueue<QString> leftovers; // the destructor's to free (the sanitizer builds check)
    leftovers.enqueue("a");
}

TEST_F(LoggerTest, LineLayoutAndTagTable)
{
    const qint64 before = QDateTime::currentSecsSinceEpoch();
    EXPECT_EQ(log.write(QStringLiteral("plain"), 1, QString(), QString(), -1), "plain");
    const qint64 after = QDateTime::currentSecsSinceEpoch();
    log.write("from bytes\n\n", 2, "s", "f", 12);
    log.write(QByteArray("  inner  space \r\n"), 3, QString(), "g", 0);
    log.write(QJsonValue(42), 4);
    log.write(QJsonObject{{"k", 1}}, 5, "s2");
    const int zzz = GX2File::readAll(path).mid(20, 3).toInt(); // seconds, not milliseconds
    // time() reads the coarse clock, which may still show the second before.
    EXPECT_TRUE(zzz == (before + 999) % 1000 || zzz == before % 1000 || zzz == after % 1000) << zzz;
    EXPECT_EQ(tails(path), "[INFO]\tplain|[WARN]\tf#12\ts\tfrom bytes|[ERROR]\tg\t  inner  space|"
                           "[TRACE]|[FATAL]\ts2\t{|    \"k\": 1|}"); // a JSON scalar is no text

    QFile::remove(path);
    log.write("below the default start level 0", -1);
    log.setStartLevel(-2);
    for (int level = -2; level <= 14; ++level)
        log.write(QString::number(level), level);
    log.setStartLevel(3);
    EXPECT_EQ(log.write("dropped", 2), "dropped");
    log.write("kept", 3);
    EXPECT_EQ(tails(path), "[DEBUG]\t-2|[DEBUG]\t-1|[DEBUG]\t0|[INFO]\t1|[WARN]\t2|"
                           "[ERROR]\t3|[TRACE]\t4|[FATAL]\t5|[DEBUG]\t6|[DEBUG]\t7|"
                           "[DEBUG]\t8|[DEBUG]\t9|[DEBUG]\t10|[MEM-TRACE]\t11|"
                           "[DEBUG]\t12|[DB]\t13|[DEBUG]\t14|[ERROR]\tkept");
}

TEST_F(LoggerTest, RollsOnlyAboveMaxSize)
{
    log.setMaxSize(100);
    GX2File::saveBinary(QByteArray(100, 'a'), path);
    log.write("at limit");
    EXPECT_TRUE(rolled().isEmpty());

    GX2File::saveBinary(QByteArray(101, 'b'), path);
    log.write("after roll");
    ASSERT_EQ(rolled().size(), 1);
    EXPECT_EQ(GX2File::readAll(tmp.filePath(rolled()[0])), QByteArray(101, 'b'));
    EXPECT_EQ(tails(path), "[DEBUG]\tafter roll");
}

TEST_F(LoggerTest, SecondRollInTheSameSecondKeepsWritingTheBigFile)
{
    // The names a roll could pick during this test are taken, as after an earlier roll.
    const QDateTime now = QDateTime::currentDateTime();
    for (int i = 0; i < 3; ++i)
        GX2File::saveBinary("earlier", tmp.filePath(now.addSecs(i).toString("'app.'HHmmss'.log'")));
    log.setMaxSize(10);
    GX2File::saveBinary("0123456789\n", path);
    log.write("one");
    log.write("two");

    for (const QString& name : rolled())
        EXPECT_EQ(GX2File::readAll(tmp.filePath(name)), QByteArray("earlier"));
    EXPECT_EQ(rolled().size(), 3);
    EXPECT_EQ(tails(path), "0123456789|[DEBUG]\tone|[DEBUG]\ttwo");
}

TEST_F(LoggerTest, LinesWaitForAUsablePath)
{
    // A regular file where a directory should be: the log's directory cannot be made.
    const QString blocker = tmp.filePath("blocker");
    GX2File::saveBinary("file", blocker);
    log.setFilePath(blocker + "/logs/app.log");
    log.write("first");
    log.write("second");
    EXPECT_FALSE(log.flush());
    ASSERT_TRUE(QFile::remove(blocker));
    log.write("third");
    EXPECT_EQ(tails(log.filePath()), "[DEBUG]\tfirst|[DEBUG]\tsecond|[DEBUG]\tthird");
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
    const QString padding(200, 'p');
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([&, t] {
            for (int n = 0; n < kEach; ++n)
                log.write(QStringLiteral("%1 %2 %3").arg(t).arg(n).arg(padding), 1, "w");
        });
    for (std::thread& w : writers)
        w.join();
    ASSERT_TRUE(log.flush());

    const QRegularExpression shape(R"(^[-0-9 :.]{23}\t\[INFO\]\tw\t(\d) (\d+) )" + padding + '$');
    std::vector<int> next(kThreads, 0);
    int bad = 0;
    for (const QString& line :
         QString::fromUtf8(GX2File::readAll(path)).split('\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch m = shape.match(line);
        const int t = m.hasMatch() ? m.captured(1).toInt() : -1;
        bad += t < 0 || t >= kThreads || m.captured(2).toInt() != next[t]++;
    }
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

INSTANTIATE_TEST_SUITE_P(DrainModes, LoggerModeTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "ThreadMode" : "CallerThread";
                         });
