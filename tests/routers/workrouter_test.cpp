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
        ASSERT_TRUE(dir.isValid());
        hadRoot = qEnvironmentVariableIsSet("NASBROLT_ROOT");
        savedRoot = qgetenv("NASBROLT_ROOT");
        qputenv("NASBROLT_ROOT", QFile::encodeName(dir.path()));
        root.add(&earlier);
        root.add(&work);
    }

    void TearDown() override
    {
        if (hadRoot)
            qputenv("NASBROLT_ROOT", savedRoot);
        else
            qunsetenv("NASBROLT_ROOT");
    }

    QJsonObject ask(const QString& cmd, const QJsonObject& params = {})
    {
        GX2RpcPacket response;
        EXPECT_TRUE(root.doSlot(response, QJsonObject{{"cmd", cmd}, {"params", params}}));
        return response;
    }

    QString under(const QString& path) const { return dir.path() + path; }
    QString sessions() const { return under(QStringLiteral("/var/lib/php/sessions")); }

    QTemporaryDir dir;
    bool hadRoot = false;
    QByteArray savedRoot;
    GX2TodoRouter root;
    GX2TodoRouter earlier;
    WorkRouter work;
};

TEST_F(WorkRouterTest, BootTimeAnHourAheadWritesTheNegativeDifference)
{
    const QString alarm = under(QStringLiteral("/sys/class/rtc/rtc0/wakealarm"));
    const qint64 ahead = QDateTime::currentSecsSinceEpoch() + 3600;
    const QString text = QDateTime::fromSecsSinceEpoch(ahead).toString("yyyy-MM-dd HH:mm:ss");
    // A second may tick between building the request and the slot reading the clock.
    const QList<QByteArray> allowed{"-3600", "-3599"};

    EXPECT_EQ(ask("power_setbootime", {{"bootime", ahead}}), kOk);
    EXPECT_TRUE(allowed.contains(GX2File::readAll(alarm))) << GX2File::readAll(alarm).data();
    ASSERT_TRUE(QFile::remove(alarm));

    EXPECT_EQ(ask("power_setbootime", {{"bootime", text}}), kOk);
    EXPECT_TRUE(allowed.contains(GX2File::readAll(alarm))) << GX2File::readAll(alarm).data();
}

TEST_F(WorkRouterTest, BootTimeNotInTheFutureOrUnreadableIsRefusedAndWritesNothing)
{
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const QString past = QDateTime::fromSecsSinceEpoch(now - 60).toString("yyyy-MM-dd HH:mm:ss");
    EXPECT_EQ(ask("power_setbootime", {{"bootime", past}}), kBadParam);
    EXPECT_EQ(ask("power_setbootime", {{"bootime", now - 60}}), kBadParam);
    // The current second has already begun, so it is not in the future.
    EXPECT_EQ(ask("power_setbootime", {{"bootime", now}}), kBadParam);
    EXPECT_EQ(ask("power_setbootime", {{"bootime", "tomorrow at nine"}}), kBadParam);
    EXPECT_EQ(ask("power_setbootime", {{"bootime", "2999-02-30 10:00:00"}}), kBadParam);
    EXPECT_EQ(ask("power_setbootime"), kBadParam);
    EXPECT_FALSE(QFile::exists(under(QStringLiteral("/sys/class/rtc/rtc0/wakealarm"))));
}

TEST_F(WorkRouterTest, SleepingWritesDiskAndLivenessAnswers)
{
    EXPECT_EQ(ask("power_sleeping"), kOk);
    EXPECT_EQ(GX2File::readAll(under(QStringLiteral("/sys/power/state"))), QByteArray("disk"));
    EXPECT_EQ(ask("system_working"), kOk);
}

TEST_F(WorkRouterTest, KickDeletesOnlyTheUsersUnsparedSessions)
{
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
        ASSERT_TRUE(GX2File::saveBinary(file.second, sessions() + "/" + file.first));

    {
        ScriptedBackend backend;
        backend.expect("rm", {"-f", sessions() + "/sess_a1"});
        backend.expect("rm", {"-f", sessions() + "/sess_a2"});
        const QJsonObject response = ask("user_kick", {{"uid", " alice "}, {"ignore", "a3"}});
        EXPECT_EQ(response, (QJsonObject{{"results", QJsonObject{{"affected", 2}}}, {"err", 0}}));
        EXPECT_EQ(backend.callLines(), (QStringList{"rm -f " + sessions() + "/sess_a1",
                                                    "rm -f " + sessions() + "/sess_a2"}));
    }
    {
        // "al" is a prefix of "alice"; its needle must catch only its own session.
        ScriptedBackend backend;
        backend.expect("rm", {"-f", sessions() + "/sess_c1"});
        EXPECT_EQ(ask("user_kick", {{"uid", "al"}}),
                  (QJsonObject{{"results", QJsonObject{{"affected", 1}}}, {"err", 0}}));
        EXPECT_EQ(backend.callLines().size(), 1);
    }
    {
        ScriptedBackend backend;
        backend.expect("rm", {"-f", sessions() + "/sess_z1"});
        EXPECT_EQ(ask("user_kick", {{"uid", "张三"}}),
                  (QJsonObject{{"results", QJsonObject{{"affected", 1}}}, {"err", 0}}));
    }
}

TEST_F(WorkRouterTest, KickWithoutUidOrSessionsRunsNothing)
{
    ScriptedBackend backend; // any process call fails the test
    EXPECT_EQ(ask("user_kick", {{"uid", "   "}}), kBadParam);
    EXPECT_EQ(ask("user_kick", {{"ignore", "a3"}}), kBadParam);
    EXPECT_EQ(ask("user_kick", {{"uid", "alice"}}),
              (QJsonObject{{"results", QJsonObject{{"affected", 0}}}, {"err", 0}}));
}

TEST_F(WorkRouterTest, IdleDeviceAnswersZeroAndUnopenableOneAnswersWithoutErr)
{
    const QString file = under(QStringLiteral("/free.img"));
    ASSERT_TRUE(GX2File::saveBinary(QByteArray(512, '\0'), file));
    EXPECT_EQ(ask("device_isidle", {{"dev", " " + file + " "}}), kOk);
    EXPECT_EQ(ask("device_isidle", {{"dev", "  "}}), kBadParam);
    EXPECT_EQ(ask("device_isidle"), kBadParam);
    // The earlier router's 9972 must not survive as the busy answer.
    EXPECT_EQ(ask("device_isidle", {{"dev", under(QStringLiteral("/no/such/dev"))}}),
              QJsonObject());
}

// Detaches the loop device however the test ends.
struct LoopDevice
{
    QString node;
    ~LoopDevice() { procRun(QStringLiteral("losetup"), {QStringLiteral("-d"), node}, 5000, 10000); }
};

TEST_F(WorkRouterTest, BlockDeviceHeldExclusivelyAnswersWithoutErr)
{
    const QString image = under(QStringLiteral("/loop.img"));
    ASSERT_TRUE(GX2File::saveBinary(QByteArray(1 << 20, '\0'), image));
    const LNX2ProcResult setup = procRun("losetup", {"--find", "--show", image}, 5000, 10000);
    if (!setup.started)
        GTEST_SKIP() << "losetup is not installed";
    if (!setup.ok())
        GTEST_SKIP() << "no loop device can be set up here: " << setup.err.trimmed().data();
    const LoopDevice loop{QString::fromUtf8(setup.out).trimmed()};

    EXPECT_EQ(ask("device_isidle", {{"dev", loop.node}}), kOk);
    const int fd = ::open(QFile::encodeName(loop.node).constData(), O_RDONLY | O_EXCL);
    ASSERT_GE(fd, 0) << "cannot hold " << loop.node.toStdString();
    EXPECT_EQ(ask("device_isidle", {{"dev", loop.node}}), QJsonObject());
    ::close(fd);
    EXPECT_EQ(ask("device_isidle", {{"dev", loop.node}}), kOk);
}

} // namespace
