#include "lnx2/lnx2process.h"

#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

TEST(ProcSubstitute, ToolsDirectoryReplacesExecutableNamesakesOnly)
{
    QTemporaryDir tools;
    ASSERT_TRUE(tools.isValid());
    for (const char* name : {"mdadm", "echo"}) {
        QFile script(tools.filePath(name));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"fake $*\"\n");
    }
    QFile::setPermissions(tools.filePath("mdadm"), QFile::ReadOwner | QFile::ExeOwner);
    qputenv("NASBROLT_TOOLS", QFile::encodeName(tools.path()));
    const LNX2ProcResult fake = procRun("/sbin/mdadm", {"-D", "/dev/md0"}, 5000, 5000);
    const LNX2ProcResult plain = procRun("echo", {"real"}, 5000, 5000);
    const LNX2ProcResult unchanged = procRunLine("/bin/sh -c \"exit 4\"", 5000, 5000);
    qunsetenv("NASBROLT_TOOLS");

    EXPECT_EQ(fake.out, QByteArray("fake -D /dev/md0\n"));
    EXPECT_EQ(plain.out, QByteArray("real\n")); // not executable: not used
    EXPECT_EQ(unchanged.exitCode, 4);
}

TEST(ProcSplitCommand, QuotesGroupAndTripleQuotesAreLiteral)
{
    const auto split = [](const char* line) { return procSplitCommand(line).join('|'); };
    EXPECT_EQ(split("  mdadm  -D   /dev/md0 "), QStringLiteral("mdadm|-D|/dev/md0"));
    EXPECT_EQ(split("sh -c \"echo a  b\" x"), QStringLiteral("sh|-c|echo a  b|x"));
    EXPECT_EQ(split("say \"a \"\"\"b\"\"\" c\""), QStringLiteral("say|a \"b\" c"));
}

TEST(ProcRun, FinishLimitCountsFromBudgetSince)
{
    LNX2ProcRequest r;
    r.program = QStringLiteral("sleep");
    r.arguments = QStringList{"0.3"};
    r.startMs = r.finishMs = 5000;
    r.budgetSince = procClockMs() - 4000; // a second left is enough
    EXPECT_TRUE(procRun(r).ok());
    // A spent budget means no wait at all: neither the full limit nor an endless one.
    r.budgetSince = procClockMs() - 60000;
    const LNX2ProcResult result = procRun(r);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.finished);
}

TEST(ProcRun, DetachedStartsAndForgetsExecuteReportsTheExitCode)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString marker = dir.filePath("ran");
    EXPECT_TRUE(procStartDetached("sh", {"-c", "sleep 0.3; echo x > " + marker}));
    EXPECT_FALSE(QFile::exists(marker)); // not waited for
    for (int i = 0; i < 100 && !QFile::exists(marker); ++i)
        QThread::msleep(50);
    EXPECT_TRUE(QFile::exists(marker));
    EXPECT_FALSE(procStartDetached("/nonexistent/nasbrolt-x", {}));

    EXPECT_EQ(procExecute("sh", {"-c", "exit 7"}), 7);
    EXPECT_EQ(procExecute("/nonexistent/nasbrolt-x", {}), -2);
    EXPECT_EQ(procExecute("sh", {"-c", "kill -9 $$"}), -1);
}

TEST(ProcRun, ClosedInputEndsAToolThatReadsAnAnswer)
{
    LNX2ProcRequest r;
    r.program = QStringLiteral("sh");
    r.arguments = QStringList{"-c", "read answer; echo got=$answer"};
    r.startMs = r.finishMs = 2000;
    EXPECT_FALSE(procRun(r).finished); // an open pipe: the question waits out the limit
    r.closedInput = true;
    const LNX2ProcResult result = procRun(r);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.out, "got=\n");
}
