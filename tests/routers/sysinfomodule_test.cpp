#include "routers/sysinfomodule.h"

#include "gx2/gx2brolt.h"
#include "gx2/gx2localserver.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThread>

#include <atomic>
#include <memory>

#include "gx2/gx2workers.h"
#include "tests/support/offloop.h"
#include "tests/support/processes.h"

#include <gtest/gtest.h>

namespace {

GX2RpcPacket dispatch(GX2TodoRouter& root, const QString& cmd, const QJsonObject& params = {})
{
    GX2RpcPacket request;
    request.insert(QStringLiteral("cmd"), cmd);
    if (!params.isEmpty())
        request.insert(QStringLiteral("params"), params);
    GX2RpcPacket response;
    root.doSlot(response, request);
    if (!response.isDeferred())
        return response;
    // Appends are stored by the module's own loop turn.
    GX2RpcPacket later;
    for (int i = 0; i < 1000 && !response.deferred().wait(later, 0); ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_FALSE(later.isEmpty()) << cmd.toStdString();
    return later;
}

QJsonArray records(GX2TodoRouter& root)
{
    return dispatch(root, QStringLiteral("naslog_recent"))
        .value(QStringLiteral("results"))
        .toObject()
        .value(QStringLiteral("records"))
        .toArray();
}

class SysInfoModuleTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QTemporaryDir root;
};

} // namespace

TEST_F(SysInfoModuleTest, AppendThenRecentNewestFirstAndSurvivesANewModule)
{
    {
        GX2LocalServer server;
        SysInfoModule module;
        server.add(&module);
        for (const char* text : {"first", "second"}) {
            const GX2RpcPacket answer =
                dispatch(server, QStringLiteral("naslog_append"),
                         {{QStringLiteral("level"), QStringLiteral("Information")},
                          {QStringLiteral("description"), QString::fromLatin1(text)}});
            EXPECT_EQ(answer, (QJsonObject{{QStringLiteral("err"), 0}}));
        }
        // Refused by the database (no level): the one failure code, pool unchanged.
        EXPECT_EQ(dispatch(server, QStringLiteral("naslog_append")).value(QStringLiteral("err")),
                  9990);
        const QJsonArray got = records(server);
        ASSERT_EQ(got.size(), 2);
        EXPECT_EQ(got[0].toObject().value(QStringLiteral("description")), QStringLiteral("second"));
    }
    // A new module (a restart) starts from what the database holds.
    SysInfoModule again;
    const QJsonArray reloaded = records(again);
    ASSERT_EQ(reloaded.size(), 2);
    EXPECT_EQ(reloaded[0].toObject().value(QStringLiteral("description")),
              QStringLiteral("second"));
    EXPECT_FALSE(reloaded[0].toObject().value(QStringLiteral("timestamp")).toString().isEmpty());
}

TEST_F(SysInfoModuleTest, WorkerThreadReachesTheRouterThroughTheSocket)
{
    GX2LocalServer server;
    SysInfoModule module;
    server.add(&module);
    ASSERT_TRUE(server.start(QString::fromLatin1(kBroltSocketName)));

    const bool added = offLoop([] {
        return naslogAdd(QStringLiteral("Warning"), QStringLiteral("raid"), QString(),
                         QStringLiteral("md0 degraded"), QStringLiteral("raid"), QString());
    });

    EXPECT_TRUE(added);
    const QJsonObject newest = records(module).first().toObject();
    EXPECT_EQ(newest.value(QStringLiteral("description")), QStringLiteral("md0 degraded"));
    EXPECT_EQ(newest.value(QStringLiteral("devicename")), QString());
}

namespace {

// The machine the fake sources see: the test turns the clock and holds the gates.
struct FakeMachine
{
    std::atomic<int> starts{0}, cycles{0}, ends{0};
    std::atomic<bool> open{true}, holdEnd{false}, endReached{false};
    std::atomic<qint64> now{0};
};

class FakeSources : public LookoutSources
{
public:
    explicit FakeSources(FakeMachine& m) : m(m) { ++m.starts; }
    ~FakeSources() override
    {
        m.endReached = true;
        waitUntil([this] { return !m.holdEnd; }, 20000, 5);
        ++m.ends;
    }
    void sample(LookoutParts& parts) override
    {
        waitUntil([this] { return m.open.load(); }, 20000, 5);
        parts.hostname = QStringLiteral("cycle-%1").arg(++m.cycles);
    }

private:
    FakeMachine& m;
};

class LookoutTest : public SysInfoModuleTest
{
protected:
    // An idle limit of 1000 on the fake clock.
    void make(int firstAnswerMs = 20000, int cycleMs = 5)
    {
        const LookoutTiming timing{1000, cycleMs, firstAnswerMs,
                                   [this] { return machine.now.load(); }};
        module = std::make_unique<SysInfoModule>(
            timing, [this] { return std::make_unique<FakeSources>(machine); });
    }
    void TearDown() override
    {
        machine.open = true;
        machine.holdEnd = false;
        module.reset();
        SysInfoModuleTest::TearDown();
    }
    GX2RpcPacket lookout()
    {
        GX2RpcPacket response;
        module->doSlot(response, QJsonObject{{"cmd", "system_lookout"}});
        return response;
    }
    // The snapshot's host name, waited for when the answer comes later.
    static QString hostnameOf(GX2RpcPacket answer)
    {
        if (answer.isDeferred() && !answer.deferred().wait(answer, 20000))
            return QStringLiteral("no answer");
        EXPECT_EQ(answer.value("err"), 0);
        return answer.value("results").toObject().value("hostname").toString();
    }
    bool cyclesPass(int more)
    {
        const int target = machine.cycles + more;
        return waitUntil([&] { return machine.cycles >= target; }, 20000, 5);
    }

    FakeMachine machine;
    std::unique_ptr<SysInfoModule> module;
};

} // namespace

TEST_F(LookoutTest, FirstRequestsWaitForTheFirstSnapshotWithoutBlockingOthers)
{
    make();
    machine.open = false;
    const GX2RpcPacket first = lookout();
    const GX2RpcPacket second = lookout();
    ASSERT_TRUE(first.isDeferred() && second.isDeferred());
    const GX2RpcPacket recent = dispatch(*module, QStringLiteral("naslog_recent"));
    EXPECT_TRUE(!recent.isDeferred() && recent.contains("results"));
    EXPECT_TRUE(waitUntil([&] { return machine.starts == 1; }, 20000));
    GX2RpcPacket answer;
    EXPECT_FALSE(first.deferred().wait(answer, 50));

    machine.open = true;
    EXPECT_EQ(hostnameOf(first), "cycle-1");
    EXPECT_EQ(hostnameOf(second), "cycle-1");
    EXPECT_EQ(machine.starts, 1);
}

TEST_F(LookoutTest, NoSnapshotInTimeAnswersEmptyResults)
{
    make(100);
    machine.open = false;
    const GX2RpcPacket waiting = lookout();
    GX2RpcPacket answer;
    ASSERT_TRUE(waitUntil(
        [&] {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            return waiting.deferred().wait(answer, 0);
        },
        20000));
    EXPECT_EQ(answer, (QJsonObject{{"err", 0}, {"results", QJsonObject()}}));
}

TEST_F(LookoutTest, RequestsKeepOneSamplerWhichStopsWhenIdleAndRestarts)
{
    make();
    GX2RpcPacket answer = lookout();
    // The first cycle may publish before the request looks.
    ASSERT_TRUE(!answer.isDeferred() || answer.deferred().wait(answer, 20000));
    EXPECT_EQ(answer.value("results").toObject().value("status"), 0);
    dispatch(*module, QStringLiteral("naslog_append"),
             {{"level", "Error"}, {"eventlevel", "Error"}, {"description", "disk gone"}});
    EXPECT_TRUE(waitUntil(
        [&] { return lookout().value("results").toObject().value("status") == 2; }, 20000));
    for (int i = 0; i < 3; ++i) {
        machine.now += 600;
        EXPECT_FALSE(lookout().isDeferred());
        ASSERT_TRUE(cyclesPass(2));
    }
    EXPECT_EQ(machine.starts, 1);

    machine.now += 1000;
    ASSERT_TRUE(waitUntil([&] { return machine.ends == 1; }, 20000));
    const int last = machine.cycles;
    QThread::msleep(100); // twenty pauses of a sampler that went on
    EXPECT_EQ(machine.cycles, last);
    EXPECT_FALSE(module->samplerRunning());
    // The old snapshot at once, and a new sampler behind it (held, so that
    // it cannot publish before the request looks).
    machine.open = false;
    const GX2RpcPacket old = lookout();
    EXPECT_FALSE(old.isDeferred());
    EXPECT_EQ(hostnameOf(old), QStringLiteral("cycle-%1").arg(last));
    machine.open = true;
    EXPECT_TRUE(waitUntil([&] { return machine.starts == 2; }, 20000) && cyclesPass(1));
}

TEST_F(LookoutTest, RequestWhileTheSamplerEndsKeepsItGoing)
{
    make();
    GX2RpcPacket answer = lookout();
    // The first cycle may publish before the request looks.
    ASSERT_TRUE(!answer.isDeferred() || answer.deferred().wait(answer, 20000));
    machine.holdEnd = true;
    machine.now += 1000;
    ASSERT_TRUE(waitUntil([&] { return machine.endReached.load(); }, 20000));
    // Still marked running: this request starts no sampler of its own.
    EXPECT_FALSE(lookout().isDeferred());
    machine.holdEnd = false;
    EXPECT_TRUE(waitUntil([&] { return machine.starts == 2; }, 20000) && cyclesPass(3));
    EXPECT_TRUE(module->samplerRunning());
}

TEST_F(LookoutTest, QuitCutsThePauseShort)
{
    make(20000, 600000);
    GX2RpcPacket answer = lookout();
    // The first cycle may publish before the request looks.
    ASSERT_TRUE(!answer.isDeferred() || answer.deferred().wait(answer, 20000));
    GX2Workers::requestStop();
    EXPECT_TRUE(GX2Workers::joinAll(20000).isEmpty());
    GX2Workers::resetForTests();
    EXPECT_EQ(machine.ends, 1);
    EXPECT_EQ(machine.cycles, 1);
}
