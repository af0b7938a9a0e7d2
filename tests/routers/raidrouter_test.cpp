#include "routers/raidrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2file.h"
#include "gx2/gx2workers.h"
#include "tests/support/processes.h"
#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <condition_variable>

namespace {

// Answers update-initramfs, held at a gate. ScriptedBackend answers under its
// own lock, which would hide two runs overlapping.
class UpdateBackend : public LNX2ProcBackend
{
public:
    UpdateBackend() : previous(setProcBackend(this)) {}
    ~UpdateBackend() override { setProcBackend(previous); }

    LNX2ProcResult run(const LNX2ProcRequest& request) override
    {
        std::unique_lock<std::mutex> guard(lock);
        const QString n = QString::number(++runs);
        events << "start " + n << ScriptedBackend::lineOf(request);
        opened.wait_for(guard, std::chrono::seconds(30), [this] { return open; });
        guard.unlock();
        QThread::msleep(30); // room for a second run to overlap, were it started
        guard.lock();
        events << "end " + n;
        return ScriptedBackend::succeeded();
    }
    void release()
    {
        std::lock_guard<std::mutex> guard(lock);
        open = true;
        opened.notify_all();
    }
    std::string log()
    {
        std::lock_guard<std::mutex> guard(lock);
        return events.join("; ").toStdString();
    }

private:
    std::mutex lock;
    std::condition_variable opened;
    bool open = false;
    int runs = 0;
    QStringList events;
    LNX2ProcBackend* previous;
};

// The log of runs first to last, one after the other.
std::string runs(int last)
{
    QStringList log;
    for (int n = 1; n <= last; ++n)
        log << QString("start %1").arg(n) << "/usr/sbin/update-initramfs -u"
            << QString("end %1").arg(n);
    return log.join("; ").toStdString();
}

class RaidRouterTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(dir.path())); }
    void TearDown() override
    {
        settle();
        qunsetenv("NASBROLT_ROOT");
    }
    // Nothing may still call the backend once it is gone.
    void settle()
    {
        backend.release();
        EXPECT_TRUE(
            waitUntil([this] { return ask("raid_writeconfig_waitfor") == kErrBusy; }, 20000));
    }

    GX2RpcPacket send(const QString& cmd, const QJsonObject& params = {})
    {
        GX2RpcPacket response;
        EXPECT_TRUE(router.doSlot(response, QJsonObject{{"cmd", cmd}, {"params", params}}));
        return response;
    }
    // The "err" of the answer, given now or later; -1 when none came in time.
    int ask(const QString& cmd, const QJsonObject& params = {})
    {
        GX2RpcPacket response = send(cmd, params);
        if (response.isDeferred() && !response.deferred().wait(response, 20000))
            return -1;
        return response.value("err").toInt(-1);
    }
    QJsonObject speeds() { return send("raid_limit_speeds").value("results").toObject(); }
    QByteArray limit(const char* which) { return GX2File::readAll(limitPath(which)); }
    QString limitPath(const char* which)
    {
        return dir.filePath(QString("proc/sys/dev/raid/speed_limit_") + which);
    }

    QTemporaryDir dir;
    UpdateBackend backend;
    RaidRouter router;
};

TEST_F(RaidRouterTest, RunsQueueOneBehindAnotherAndWaitersSeeThem)
{
    EXPECT_FALSE(send("raid_writeconfig_waitfor").isDeferred());
    EXPECT_EQ(ask("raid_writeconfig_waitfor"), kErrBusy);

    // Busy from the request on, though the run is held.
    EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(ask("raid_writeconfig_waitfor", {{"timeout", 100}}), kErrNoAnswer);
    EXPECT_GE(timer.elapsed(), 100);
    // Numbers beyond int stay long waits: 2^32 + 100 is not 100 ms.
    const GX2Deferred huge =
        send("raid_writeconfig_waitfor", {{"timeout", 4294967396.0}}).deferred();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    GX2RpcPacket answer;
    EXPECT_FALSE(huge.wait(answer, 400));
    backend.release();
    EXPECT_TRUE(huge.wait(answer, 20000));
    EXPECT_EQ(answer.value("err"), kErrOk);
    EXPECT_EQ(backend.log(), runs(2));

    // Two in a row after idle: two more runs, one after the other.
    EXPECT_EQ(ask("raid_writeconfig_waitfor"), kErrBusy);
    EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    EXPECT_EQ(ask("raid_writeconfig_waitfor"), kErrOk);
    EXPECT_EQ(backend.log(), runs(4));

    for (const QJsonValue& v :
         {QJsonValue(1e12), QJsonValue(2147483648.0), QJsonValue("4294967396"), QJsonValue(300001)})
        EXPECT_EQ(RaidRouter::waitLimitMs(v), 300000);
    for (const QJsonValue& v : {QJsonValue(0), QJsonValue(-5), QJsonValue(-1e12), QJsonValue()})
        EXPECT_EQ(RaidRouter::waitLimitMs(v), 30000);
    EXPECT_EQ(RaidRouter::waitLimitMs(1500), 1500);
}

TEST_F(RaidRouterTest, QuitEndsWaitersAndDropsThePendingRun)
{
    EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    EXPECT_EQ(ask("raid_writeconfig"), kErrOk);
    const GX2Deferred waiter = send("raid_writeconfig_waitfor").deferred();
    QElapsedTimer timer;
    timer.start();
    GX2Workers::requestStop();
    GX2RpcPacket answer;
    EXPECT_TRUE(waiter.wait(answer, 5000));
    EXPECT_LT(timer.elapsed(), 5000);
    EXPECT_EQ(answer.value("err"), kErrNoAnswer);
    settle();
    EXPECT_EQ(backend.log(), runs(1));
    EXPECT_TRUE(GX2Workers::joinAll(10000).isEmpty());
    GX2Workers::resetForTests();
}

TEST_F(RaidRouterTest, SpeedLimitsReadWithDefaultsAndWriteMaxFirst)
{
    EXPECT_EQ(speeds(), (QJsonObject{{"max", 200000}, {"min", 1000}}));
    GX2File::saveBinary("0\n", limitPath("max"));
    GX2File::saveBinary("fast\n", limitPath("min"));
    EXPECT_EQ(speeds(), (QJsonObject{{"max", 200000}, {"min", 1000}}));
    GX2File::saveBinary("150000\n", limitPath("max"));
    GX2File::saveBinary("2500\n", limitPath("min"));
    EXPECT_EQ(speeds(), (QJsonObject{{"max", 150000}, {"min", 2500}}));

    const auto change = [&](const QJsonObject& params, int err, const QByteArray& max,
                            const QByteArray& min) {
        EXPECT_EQ(ask("raid_limit_speeds_change", params), err);
        EXPECT_EQ(limit("max"), max);
        EXPECT_EQ(limit("min"), min);
    };
    change({{"max", 0}, {"min", 0}}, kErrOk, "200000", "1000");
    change({{"max", 50000}, {"min", 4000}}, kErrOk, "50000", "4000");
    change({}, kErrOk, "200000", "1000");
    change({{"max", 1e12}, {"min", -1e12}}, kErrOk, "2147483647", "1000");

    ASSERT_TRUE(QFile::remove(limitPath("max")) && QDir().mkdir(limitPath("max")));
    change({{"max", 1}, {"min", 2}}, kErrWriteFailed, "", "1000");
    ASSERT_TRUE(QDir().rmdir(limitPath("max")) && QFile::remove(limitPath("min")));
    ASSERT_TRUE(QDir().mkdir(limitPath("min")));
    change({{"max", 3}, {"min", 4}}, kErrWriteFailed, "3", "");
}

} // namespace
