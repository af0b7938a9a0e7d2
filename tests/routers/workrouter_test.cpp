#include "routers/workrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2file.h"
#include "lnx2/lnx2process.h"
#include "tests/support/scriptedbackend.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QJsonObject kOk{{"err", kErrOk}};
const QJsonObject kBadParam{{"err", kErrBadParam}};

// The router as the server holds it: a child of the root, after a router that
// misses every command and so leaves the unknown-command code in the response.
class WorkRouterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("NASBROLT_ROOT", QFile::encodeName(dir.path()));
        root.add(&earlier);
        root.add(&work);
    }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QJsonObject ask(const QString& cmd, const QJsonObject& params = {})
    {
        GX2RpcPacket response;
        EXPECT_TRUE(root.doSlot(response, QJsonObject{{"cmd", cmd}, {"params", params}}));
        return response;
    }

    QTemporaryDir dir;
    GX2TodoRouter root;
    GX2TodoRouter earlier;
    WorkRouter work;
};

TEST_F(WorkRouterTest, PowerWritesTheWakeAlarmAndTheSleepState)
{
    const QString alarm = dir.filePath("sys/class/rtc/rtc0/wakealarm");
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const auto text = [](qint64 secs) {
        return QDateTime::fromSecsSinceEpoch(secs).toString("yyyy-MM-dd HH:mm:ss");
    };
    for (const QJsonValue& refused :
         {QJsonValue(text(now - 60)), QJsonValue(now - 60), QJsonValue(now) /* already begun */,
          QJsonValue("tomorrow at nine"), QJsonValue("2999-02-30 10:00:00"),
          QJsonValue(QJsonValue::Undefined)})
        EXPECT_EQ(ask("power_setbootime", {{"bootime", refused}}), kBadParam);
    EXPECT_FALSE(QFile::exists(alarm));

    // A second may tick between building the request and the slot reading the clock.
    const QList<QByteArray> allowed{"-3600", "-3599"};
    for (const QJsonValue& ahead : {QJsonValue(now + 3600), QJsonValue(text(now + 3600))}) {
        EXPECT_EQ(ask("power_setbootime", {{"bootime", ahead}}), kOk);
        EXPECT_TRUE(allowed.contains(GX2File::readAll(alarm))) << GX2File::readAll(alarm).data();
        QFile::remove(alarm);
    }
    EXPECT_EQ(ask("power_sleeping"), kOk);
    EXPECT_EQ(GX2File::readAll(dir.filePath("sys/power/state")), QByteArray("disk"));
}

TEST_F(WorkRouterTest, KickDeletesOnlyTheUsersUnsparedSessions)
{
    const QString sessions = dir.filePath("var/lib/php/sessions/");
    const auto kick = [&](const QJsonObject& params, const QStringList& removed) {
        ScriptedBackend backend;
        backend.allowOthers();
        QStringList lines;
        for (const QString& name : removed)
            lines << "rm -f " + sessions + name;
        EXPECT_EQ(
            ask("user_kick", params),
            (QJsonObject{{"results", QJsonObject{{"affected", removed.size()}}}, {"err", 0}}));
        EXPECT_EQ(backend.callLines(), lines);
    };
    kick({{"uid", "alice"}}, {}); // no session directory yet

    const QList<QPair<QString, QByteArray>> files{
        {"sess_a1", R"(username|s:5:"alice";)"},
        // Other fields before and after the name, as PHP writes a full session.
        {"sess_a2", R"(lang|s:2:"en";username|s:5:"alice";expires|i:1700000000;)"},
        {"sess_a3", R"(username|s:5:"alice";)"},
        {"sess_b1", R"(username|s:3:"bob";)"},
        {"sess_c1", R"(username|s:2:"al";)"},
        {"sessx_alice", R"(username|s:5:"alice";)"},
        // The length is counted in characters, not in UTF-8 bytes.
        {"sess_z1", R"(username|s:2:"张三";)"},
    };
    for (const auto& file : files)
        ASSERT_TRUE(GX2File::saveBinary(file.second, sessions + file.first));

    kick({{"uid", " alice "}, {"ignore", "a3"}}, {"sess_a1", "sess_a2"});
    kick({{"uid", "al"}}, {"sess_c1"}); // a prefix of "alice" catches only its own session
    kick({{"uid", "张三"}}, {"sess_z1"});
    EXPECT_EQ(ask("user_kick", {{"uid", "   "}, {"ignore", "a3"}}), kBadParam);
}

// Detaches the loop device however the test ends.
struct LoopDevice
{
    QString node;
    ~LoopDevice() { procRun("losetup", {"-d", node}, 5000, 10000); }
};

TEST_F(WorkRouterTest, IdleDeviceAnswersZeroAndBusyOneAnswersWithoutErr)
{
    const QString image = dir.filePath("loop.img");
    ASSERT_TRUE(GX2File::saveBinary(QByteArray(1 << 20, '\0'), image));
    EXPECT_EQ(ask("device_isidle", {{"dev", " " + image + " "}}), kOk);
    EXPECT_EQ(ask("device_isidle", {{"dev", "  "}}), kBadParam);
    EXPECT_EQ(ask("device_isidle"), kBadParam);
    // The earlier router's 9972 must not survive as the busy answer.
    EXPECT_EQ(ask("device_isidle", {{"dev", dir.filePath("no/such/dev")}}), QJsonObject());

    const LNX2ProcResult setup = procRun("losetup", {"--find", "--show", image}, 5000, 10000);
    if (!setup.ok())
        GTEST_SKIP() << "no loop device can be set up here: " << setup.err.trimmed().data();
    const LoopDevice loop{QString::fromUtf8(setup.out).trimmed()};

    EXPECT_EQ(ask("device_isidle", {{"dev", loop.node}}), kOk);
    const int fd = ::open(QFile::encodeName(loop.node).constData(), O_RDONLY | O_EXCL);
    ASSERT_GE(fd, 0) << "cannot hold " << loop.node.toStdString();
    EXPECT_EQ(ask("device_isidle", {{"dev", loop.node}}), QJsonObject());
    ::close(fd);
}

} // namespace
