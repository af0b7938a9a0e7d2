#include "app/housekeeping.h"
#include "app/workthread.h"

#include "tests/support/scriptedbackend.h"

#include <QDir>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>

namespace {

const QString kList = QStringLiteral("/usr/bin/sudo snapper -c ORVO_BASE_OS list");
const QString kSnapperList = QStringLiteral("snapper -c ORVO_BASE_OS list");
const HousekeepingConfig kSlim = HousekeepingConfig::slimming();
const HousekeepingConfig kWork = HousekeepingConfig::workThread();

QString fx(const char* situation)
{
    return QStringLiteral("housekeeping/") + QLatin1String(situation) + QStringLiteral(".txt");
}

// Every case runs under a private root: no pass ever lists the real /var/log.
class HousekeepingTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString log(const char* name) const
    {
        return root.path() + QStringLiteral("/var/log/") + QLatin1String(name);
    }
    void makeLog(const char* name, qint64 size)
    {
        QDir().mkpath(QFileInfo(log(name)).path());
        QFile f(log(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly) && f.resize(size));
    }
    QString rm(const char* name) const
    {
        return QStringLiteral("/usr/bin/sudo rm -f ") + log(name);
    }
    QString echo(const char* name) const
    {
        return QStringLiteral("/usr/bin/sudo echo '' > ") + log(name);
    }

    QTemporaryDir root;
};

TEST_F(HousekeepingTest, RootUseAgainstEachThreshold)
{
    struct Case
    {
        HousekeepingConfig cfg;
        const char* df;
        int calls; // df alone, or df and the snapper listing of a cleaning pass
    };
    for (const Case& c : {Case{kSlim, "df-root-90", 1}, Case{kSlim, "df-root-91", 2},
                          Case{kWork, "df-root-90", 2}}) {
        ScriptedBackend sb;
        sb.expect(c.cfg.dfProgram, c.cfg.dfArguments).printsFile(fx(c.df));
        sb.expectLine(c.cfg.snapperThroughShell ? kList : kSnapperList).repeatedly();
        Housekeeping(c.cfg).check();
        EXPECT_EQ(sb.calls().size(), c.calls) << c.df;
    }
    ScriptedBackend sb;
    sb.expect(QStringLiteral("sudo"), {QStringLiteral("df")}).printsFile(fx("df-root-91"));
    // df exits 1 when some other mount is unreadable; its report still counts.
    sb.expect(QStringLiteral("df")).printsFile(fx("df-root-91")).exits(1);
    sb.expect(QStringLiteral("df")).printsFile(fx("df-root-91")).timesOut();
    sb.expect(QStringLiteral("df")).failsToStart();
    sb.expect(QStringLiteral("sudo"), {QStringLiteral("df")})
        .printsFile(fx("df-root-91"))
        .timesOut();
    EXPECT_EQ(Housekeeping(kSlim).rootUse(), 91);
    EXPECT_EQ(Housekeeping(kWork).rootUse(), 91);
    EXPECT_EQ(Housekeeping(kWork).rootUse(), 0);
    EXPECT_EQ(Housekeeping(kWork).rootUse(), 0);
    Housekeeping(kSlim).check(); // no cleaning after a query that timed out
    const QList<LNX2ProcRequest> calls = sb.calls();
    ASSERT_EQ(calls.size(), 5);
    EXPECT_EQ(
        QList<int>({calls[0].startMs, calls[0].finishMs, calls[1].startMs, calls[1].finishMs}),
        QList<int>({10000, 5000, 5000, 10000}));
}

TEST_F(HousekeepingTest, DeletesApplicationSnapshotsInListingOrder)
{
    QStringList expected{kList};
    for (const char* n : {"12", "27", "31"})
        expected << QStringLiteral("/usr/bin/sudo snapper -c ORVO_BASE_OS delete ") +
                        QLatin1String(n);
    expected << kSnapperList;
    for (const char* n : {"12", "27", "31"})
        expected << QStringLiteral("snapper -c ORVO_BASE_OS delete ") + QLatin1String(n);
    ScriptedBackend sb;
    sb.expectLine(kList).printsFile(fx("snapper-list-apps-and-system"));
    sb.expectLine(kSnapperList).printsFile(fx("snapper-list-apps-and-system"));
    sb.allowOthers();
    Housekeeping(kSlim).clean();
    Housekeeping(kWork).clean();
    ASSERT_EQ(sb.callLines(), expected);
    const QList<LNX2ProcRequest> calls = sb.calls();
    EXPECT_EQ(QList<int>({calls[1].startMs, calls[1].finishMs, calls[4].startMs, calls[4].finishMs,
                          calls[5].startMs, calls[5].finishMs}),
              QList<int>({9999, 9999, 1000, 1000, 1000, 9999}));
}

TEST_F(HousekeepingTest, FailingListingGoesOnWithTheLogs)
{
    makeLog("syslog.1", 10);
    ScriptedBackend sb;
    sb.expectLine(kList).printsFile(fx("snapper-list-apps-and-system")).failsToStart();
    sb.expectLine(kSnapperList).printsFile(fx("snapper-list-apps-and-system")).exits(1);
    sb.expectLine(rm("syslog.1")).repeatedly();
    Housekeeping(kSlim).clean();
    Housekeeping(kWork).clean();
    EXPECT_EQ(sb.callLines(), (QStringList{kList, rm("syslog.1"), kSnapperList, rm("syslog.1")}));
}

TEST_F(HousekeepingTest, LogsOfEachConfiguration)
{
    for (const char* name : {"syslog.1", "syslog.2", "syslog.2.gz", "old/dpkg.log.gz"})
        makeLog(name, 100);
    makeLog("kern.log", 134217728);
    makeLog("daemon.log", 134217729);
    makeLog("messages", 67108865);
    auto logCommands = [](const HousekeepingConfig& cfg) {
        ScriptedBackend sb;
        sb.allowOthers(); // an empty snapper listing, and every log command
        Housekeeping(cfg).clean();
        const QStringList lines = sb.callLines();
        return QSet<QString>(lines.begin() + 1, lines.end());
    };
    const QSet<QString> common{rm("syslog.1"), rm("syslog.2.gz"), echo("daemon.log")};
    EXPECT_EQ(logCommands(kSlim), common + QSet<QString>{echo("messages")});
    ASSERT_TRUE(QFile::resize(log("messages"), 67108864));
    EXPECT_EQ(logCommands(kWork), common + QSet<QString>{rm("syslog.2")});
    EXPECT_EQ(QFileInfo(log("daemon.log")).size(), 134217729);
}

TEST_F(HousekeepingTest, WorkThreadLoopChecksAfterItsPeriodAndStops)
{
    ScriptedBackend sb;
    sb.expect(QStringLiteral("df")).printsFile(fx("df-root-90")).repeatedly();
    sb.expectLine(kSnapperList).exits(1).repeatedly();
    {
        WorkThread idle(3600000, 10);
        idle.start();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        idle.stop();
        EXPECT_FALSE(idle.isRunning());
        EXPECT_TRUE(sb.calls().isEmpty()); // the first check waits a whole period
    }
    WorkThread wt(50, 10);
    wt.start();
    for (int i = 0; i < 500 && sb.calls().size() < 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    wt.stop();
    EXPECT_FALSE(wt.isRunning());
    EXPECT_EQ(sb.callLines().mid(0, 2), (QStringList{QStringLiteral("df"), kSnapperList}));
}

} // namespace
