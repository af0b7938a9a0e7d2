#include "lnx2/lnx2process.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

void writeScript(const QString& path, const QByteArray& body, bool executable)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(body);
    file.close();
    QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        mode |= QFile::ExeOwner;
    ASSERT_TRUE(file.setPermissions(mode));
}

LNX2ProcResult runWith(LNX2ProcMode mode, const QString& program, const QStringList& args)
{
    LNX2ProcRequest request;
    request.mode = mode;
    request.program = program;
    request.arguments = args;
    return procRun(request);
}

} // namespace

TEST(ProcSubstitute, ToolsDirectoryReplacesExecutableNamesakesOnly)
{
    QTemporaryDir tools;
    ASSERT_TRUE(tools.isValid());
    writeScript(tools.filePath(QStringLiteral("mdadm")), "#!/bin/sh\necho \"fake $*\"\n", true);
    writeScript(tools.filePath(QStringLiteral("echo")), "#!/bin/sh\necho wrong\n", false);
    qputenv("NASBROLT_TOOLS", QFile::encodeName(tools.path()));

    const LNX2ProcResult fake =
        procRun(QStringLiteral("/sbin/mdadm"), {QStringLiteral("-D"), QStringLiteral("/dev/md0")},
                5000, 5000);
    const LNX2ProcResult plain =
        procRun(QStringLiteral("echo"), {QStringLiteral("real")}, 5000, 5000);
    const LNX2ProcResult unchanged =
        procRunLine(QStringLiteral("/bin/sh -c \"exit 4\""), 5000, 5000);
    qunsetenv("NASBROLT_TOOLS");

    EXPECT_TRUE(fake.ok());
    EXPECT_EQ(fake.out, QByteArray("fake -D /dev/md0\n"));
    EXPECT_EQ(plain.out, QByteArray("real\n")); // not executable: not used
    EXPECT_TRUE(unchanged.finished);
    EXPECT_EQ(unchanged.exitCode, 4);
}

TEST(ProcSplitCommand, QuotesGroupAndTripleQuotesAreLiteral)
{
    const auto split = [](const char* line) {
        return procSplitCommand(QString::fromUtf8(line)).join(QLatin1Char('|'));
    };
    EXPECT_EQ(split("  mdadm  -D   /dev/md0 "), QStringLiteral("mdadm|-D|/dev/md0"));
    EXPECT_EQ(split("sh -c \"echo a  b\" x"), QStringLiteral("sh|-c|echo a  b|x"));
    EXPECT_EQ(split("say \"\"\"hi\"\"\""), QStringLiteral("say|\"hi\""));
    EXPECT_EQ(split("say \"a \"\"\"b\"\"\" c\""), QStringLiteral("say|a \"b\" c"));
    EXPECT_EQ(split("a \"\" b"), QStringLiteral("a|b"));
    EXPECT_TRUE(procSplitCommand(QStringLiteral("   ")).isEmpty());
}

TEST(ProcRun, FinishLimitCountsFromBudgetSince)
{
    LNX2ProcRequest request;
    request.program = QStringLiteral("sleep");
    request.arguments = QStringList{QStringLiteral("0.3")};
    request.startMs = 5000;
    request.finishMs = 5000;
    EXPECT_TRUE(procRun(request).ok());

    // Most of the budget went before the start: what is left is too short.
    request.budgetSince = procClockMs() - 4900;
    LNX2ProcResult result = procRun(request);
    EXPECT_TRUE(result.started);
    EXPECT_FALSE(result.finished);

    // A spent budget means no wait at all, not an endless one.
    request.arguments = QStringList{QStringLiteral("2")};
    request.budgetSince = procClockMs() - 60000;
    QElapsedTimer timer;
    timer.start();
    result = procRun(request);
    EXPECT_FALSE(result.finished);
    EXPECT_LT(timer.elapsed(), 1900); // the child was killed, not waited for
}

TEST(ProcRun, DetachedStartsAndForgets)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString marker = dir.filePath(QStringLiteral("ran"));
    const LNX2ProcResult result =
        runWith(LNX2ProcMode::Detached, QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("echo x > ") + marker});
    EXPECT_TRUE(result.started);
    for (int i = 0; i < 100 && !QFile::exists(marker); ++i)
        QThread::msleep(50);
    EXPECT_TRUE(QFile::exists(marker));

    EXPECT_FALSE(
        runWith(LNX2ProcMode::Detached, QStringLiteral("/nonexistent/nasbrolt-x"), {}).started);
}

TEST(ProcRun, ExecuteReportsExitCodeStartFailureAndCrash)
{
    const QString sh = QStringLiteral("sh");
    const QString c = QStringLiteral("-c");
    EXPECT_EQ(runWith(LNX2ProcMode::Execute, sh, {c, QStringLiteral("exit 7")}).exitCode, 7);
    EXPECT_EQ(
        runWith(LNX2ProcMode::Execute, QStringLiteral("/nonexistent/nasbrolt-x"), {}).exitCode, -2);
    EXPECT_EQ(runWith(LNX2ProcMode::Execute, sh, {c, QStringLiteral("kill -9 $$")}).exitCode, -1);

    // With an environment the Set rule replaces an existing value.
    qputenv("NASBROLT_PROBE", "old");
    LNX2ProcRequest request;
    request.mode = LNX2ProcMode::Execute;
    request.program = sh;
    request.arguments = QStringList{c, QStringLiteral("test \"$NASBROLT_PROBE\" = new || exit 9")};
    request.env.insert(QStringLiteral("NASBROLT_PROBE"), QStringLiteral("new"));
    request.envRule = LNX2EnvRule::Set;
    EXPECT_EQ(procRun(request).exitCode, 0);
    qunsetenv("NASBROLT_PROBE");
}
