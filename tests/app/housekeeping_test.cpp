#include "app/housekeeping.h"
#include "app/workthread.h"
#include "gx2/gx2file.h"

#include "tests/support/scriptedbackend.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

namespace {

const QString kList = QStringLiteral("/usr/bin/sudo snapper -c ORVO_BASE_OS list");
const QString kSnapperList = QStringLiteral("snapper -c ORVO_BASE_OS list");
const QString kDf90 = QStringLiteral("housekeeping/df-root-90.txt");
const QString kDf91 = QStringLiteral("housekeeping/df-root-91.txt");
const QString kListing = QStringLiteral("housekeeping/snapper-list-apps-and-system.txt");
const HousekeepingConfig kSlim = HousekeepingConfig::slimming();
const HousekeepingConfig kWork = HousekeepingConfig::workThread();

// Every case runs under a private root: no pass ever lists the real /var/log.
class HousekeepingTest : public ::testing::Test
{
protected:
    void SetUp() override { qputenv("NASBROLT_ROOT", QFile::encodeName(root.path())); }
    void TearDown() override { qunsetenv("NASBROLT_ROOT"); }

    QString log(const char* name) const { return root.path() + "/var/log/" + name; }
    void makeLog(const char* name, qint64 size)
    {
        ASSERT_TRUE(GX2File::saveBinary({}, log(name)) && QFile::resize(log(name), size));
    }
    QString rm(const char* name) const { return "/usr/bin/sudo rm -f " + log(name); }
    QString echo(const char* name) const { return "/usr/bin/sudo echo '' > " + log(name); }

    QTemporaryDir root;
};

TEST_F(HousekeepingTest, RootUseAgainstEachThreshold)
{
    using E = ScriptedBackend::Expectation;
    // {configuration, df output, its exit code, how it ends, root use, calls of a check}:
    // a check runs df, then the snapper listing of a cleaning pass.
    const std::tuple<HousekeepingConfig, QString, int, E& (E::*)(), int, int> cases[] = {
        {kSlim, kDf90, 0, &E::repeatedly, 90, 1},
        {kSlim, kDf91, 0, &E::repeatedly, 91, 2},
        {kWork, kDf90, 0, &E::repeatedly, 90, 2},
        {kWork, kDf91, 1, &E::repeatedly, 91, 2}, // exit 1: another mount is unreadable
        {kSlim, kDf91, 0, &E::timesOut, 0, 1},
        {kWork, kDf91, 0, &E::failsToStart, 0, 1},
    };
    for (const auto& [cfg, df, code, end, use, calls] : cases) {
        ScriptedBackend sb;
        (sb.expect(cfg.dfProgram, cfg.dfArguments).printsFile(df).exits(code).repeatedly().*end)();
        sb.expectLine(cfg.snapperThroughShell ? kList : kSnapperList).repeatedly();
        EXPECT_EQ(Housekeeping(cfg).rootUse(), use) << qPrintable(df);
        Housekeeping(cfg).check();
        EXPECT_EQ(sb.calls().size(), 1 + calls) << qPrintable(df);
    }
}

TEST_F(HousekeepingTest, DeletesApplicationSnapshotsInListingOrderThenLogs)
{
    makeLog("syslog.1", 10);
    ScriptedBackend sb;
    sb.expectLine(kList).printsFile(kListing);
    sb.expectLine(kSnapperList).printsFile(kListing);
    // A failing listing deletes nothing and goes on with the logs.
    sb.expectLine(kList).printsFile(kListing).failsToStart();
    sb.expectLine(kSnapperList).printsFile(kListing).exits(1);
    sb.allowOthers();
    for (int pass = 0; pass < 2; ++pass) {
        Housekeeping(kSlim).clean();
        Housekeeping(kWork).clean();
    }
    const QString slim = QStringLiteral("/usr/bin/sudo snapper -c ORVO_BASE_OS delete ");
    const QString work = QStringLiteral("snapper -c ORVO_BASE_OS delete ");
    const QString log = rm("syslog.1");
    EXPECT_EQ(sb.callLines(), (QStringList{kList, slim + "12", slim + "27", slim + "31", log,
                                           kSnapperList, work + "12", work + "27", work + "31", log,
                                           kList, log, kSnapperList, log}));
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
}

TEST_F(HousekeepingTest, WorkThreadLoopChecksAfterItsPeriodAndStops)
{
    ScriptedBackend sb;
    sb.expect("df").printsFile(kDf90).repeatedly();
    sb.expectLine(kSnapperList).exits(1).repeatedly();
    WorkThread wt(200, 10);
    wt.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(sb.calls().isEmpty()); // the first check waits a whole period
    for (int i = 0; i < 500 && sb.calls().size() < 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    wt.stop();
    EXPECT_FALSE(wt.isRunning());
    EXPECT_EQ(sb.callLines().mid(0, 2), (QStringList{"df", kSnapperList}));
}

} // namespace
