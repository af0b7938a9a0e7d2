#include "gx2/gx2brolt.h"
#include "gx2/gx2errors.h"
#include "gx2/gx2localserver.h"

#include <QCoreApplication>
#include <QDate>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "tests/support/offloop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// Answers every command with `answer` and keeps what it was sent.
class RecordingRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    QJsonObject answer{{"err", 0}, {"data", 1}};
    QList<GX2RpcPacket> seen;

private slots:
    void echo(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        seen << cmdObject;
        *retObject = answer;
    }
    void naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        echo(retObject, cmdObject);
    }
};

class BroltTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server.add(&router);
        ASSERT_TRUE(server.start(QString::fromLatin1(kBroltSocketName)));
    }
    QJsonObject params(int i) const { return router.seen.value(i).value("params").toObject(); }

    GX2LocalServer server;
    RecordingRouter router;
    QJsonObject result{{"stale", true}};
};

} // namespace

TEST(BroltNoServerTest, RequestAndNoticeGiveUpWithinTheirLimits)
{
    QElapsedTimer timer;
    timer.start();
    QJsonObject result{{"data", 1}};
    EXPECT_EQ(broltRequest(result, {{"cmd", "echo"}}, 300), kErrNoAnswer);
    EXPECT_EQ(result, (QJsonObject{{"data", 1}, {"err", kErrNoAnswer}}));
    EXPECT_FALSE(broltNotice({{"cmd", "echo"}}));
    EXPECT_LT(timer.elapsed(), 3000);
}

TEST_F(BroltTest, RequestCarriesItsLimitAndTakesTheWholeAnswer)
{
    EXPECT_EQ(offLoop([&] { return broltRequest(result, {{"cmd", "echo"}}, 0); }), 0);
    EXPECT_EQ(result, (QJsonObject{{"err", 0}, {"data", 1}}));
    EXPECT_EQ(params(0), (QJsonObject{{"timeout", 15000}}));

    // Existing params are kept; an answer without "err" counts as success.
    router.answer = {{"data", 2}};
    const QJsonObject request{{"cmd", "echo"}, {"params", QJsonObject{{"x", "y"}}}};
    EXPECT_EQ(offLoop([&] { return broltRequest(result, request, 2000); }), 0);
    EXPECT_EQ(result, (QJsonObject{{"data", 2}}));
    EXPECT_EQ(params(1), (QJsonObject{{"x", "y"}, {"timeout", 2000}}));
}

TEST_F(BroltTest, KeepAliveIsNoAnswer)
{
    router.answer = {};
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(offLoop([&] { return broltRequest(result, {{"cmd", "echo"}}, 400); }), kErrNoAnswer);
    EXPECT_GE(timer.elapsed(), 400);
    EXPECT_EQ(router.seen.size(), 1);
}

TEST_F(BroltTest, NoticeReachesTheRouter)
{
    // No answer is awaited, so even the server's own thread may send one.
    EXPECT_TRUE(broltNotice({{"cmd", "echo"}, {"seq", 4}}));
    QElapsedTimer timer;
    for (timer.start(); router.seen.isEmpty() && timer.elapsed() < 2000;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_EQ(router.seen.value(0),
              (QJsonObject{{"cmd", "echo"}, {"seq", 4}, {"params", QJsonObject()}}));
}

TEST_F(BroltTest, NaslogAddSendsTheSixFields)
{
    EXPECT_TRUE(
        offLoop([] { return naslogAdd("Warning", "admin", "10.0.0.2", "hot", "raid", ""); }));
    EXPECT_EQ(router.seen.value(0).value("cmd"), "naslog_append");
    EXPECT_EQ(params(0), (QJsonObject{{"level", "Warning"},
                                      {"username", "admin"},
                                      {"ipaddr", "10.0.0.2"},
                                      {"description", "hot"},
                                      {"appname", "raid"},
                                      {"devicename", ""},
                                      {"timeout", kNaslogTimeoutMs}}));
    router.answer = {{"err", kErrFailed}};
    EXPECT_FALSE(offLoop([] { return naslogAdd("Error", "", "", "x", "", ""); }));
}

TEST(AddLogTest, StampHasTheHourInTheMonthsPlace)
{
    QTemporaryDir root;
    ASSERT_TRUE(QDir(root.path()).mkpath("tmp"));
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    addLog("first");
    addLog("second");
    qunsetenv("NASBROLT_ROOT");

    QFile file(root.filePath("tmp/quillo.debug.log"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    ASSERT_EQ(lines.size(), 3);
    const QRegularExpressionMatch m =
        QRegularExpression(R"(^(\d{4})-(\d\d)-\d\d (\d\d):\d\d:\d\d\.\d{3} first$)")
            .match(lines[0]);
    ASSERT_TRUE(m.hasMatch());
    EXPECT_EQ(m.captured(1).toInt(), QDate::currentDate().year());
    EXPECT_EQ(m.captured(2), m.captured(3));
    EXPECT_TRUE(lines[1].endsWith(" second") && lines[2].isEmpty());
}

#include "gx2brolt_test.moc"
