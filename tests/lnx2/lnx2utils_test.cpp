#include "lnx2/lnx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo");
const QString kMissing = QStringLiteral("/nonexistent/nasbrolt-tool");

QString sh(const char* script)
{
    return QStringLiteral("sh -c \"") + QString::fromUtf8(script) + QLatin1Char('"');
}

bool activedWith(const QByteArray& out, const QByteArray& err, int code)
{
    ScriptedBackend backend;
    backend
        .expect(kSudo,
                {QStringLiteral("systemctl"), QStringLiteral("status"), QStringLiteral("smbd")})
        .prints(out)
        .errs(err)
        .exits(code);
    return serviceActived(QStringLiteral("smbd"), 3000);
}

void expectLimits(const LNX2ProcRequest& call, int timeout)
{
    EXPECT_EQ(call.mode, LNX2ProcMode::Capture);
    EXPECT_EQ(call.startMs, timeout);
    EXPECT_EQ(call.finishMs, timeout);
    EXPECT_GE(call.budgetSince, 0);
}

} // namespace

TEST(CmdExec, StdoutOnSuccessStderrOnAnyFailure)
{
    QString out = QStringLiteral("stale");
    EXPECT_TRUE(cmdExec(sh("echo out; echo err >&2"), out, 5000));
    EXPECT_EQ(out, QStringLiteral("out\n"));
    EXPECT_FALSE(cmdExec(sh("echo out; echo err >&2; exit 3"), out, 5000));
    EXPECT_EQ(out, QStringLiteral("err\n"));
    EXPECT_FALSE(cmdExec(sh("printf x; exit 1"), out, 5000));
    EXPECT_EQ(out, QString());
    EXPECT_FALSE(cmdExec(sh("echo err >&2; kill -9 $$"), out, 5000));
    EXPECT_EQ(out, QStringLiteral("err\n"));
    out = QStringLiteral("stale");
    EXPECT_FALSE(cmdExec(kMissing, out, 5000));
    EXPECT_EQ(out, QString());
    EXPECT_TRUE(cmdExec(QStringLiteral("true"), 5000));
    EXPECT_FALSE(cmdExec(QStringLiteral("false"), 5000));

    // UTF-8, cut at the first zero byte.
    EXPECT_TRUE(cmdExec(sh("printf 'gr\\303\\274n\\0tail'"), out, 5000));
    EXPECT_EQ(out, QString::fromUtf8("gr\xc3\xbcn"));
}

TEST(CmdExec, TimeOutKillsTheChildAndGivesItsStderr)
{
    QString out;
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(cmdExec(sh("echo partial >&2; exec sleep 5"), out, 600));
    EXPECT_LT(timer.elapsed(), 4000); // killed, not waited for
    EXPECT_EQ(out, QStringLiteral("partial\n"));
}

TEST(CmdExec, EnvAppendsToExistingVariablesAndSetsNewOnes)
{
    qputenv("NASBROLT_LIST", ":/a::/b:");
    const QHash<QString, QString> env{{QStringLiteral("PATH"), QStringLiteral("/opt/nb-extra")},
                                      {QStringLiteral("NASBROLT_LIST"), QStringLiteral("/c")},
                                      {QStringLiteral("NASBROLT_NEW"), QStringLiteral("v")}};
    QString out;
    const bool ok =
        cmdExec(env, sh("echo $PATH; echo $NASBROLT_LIST; echo $NASBROLT_NEW"), out, 5000);
    qunsetenv("NASBROLT_LIST");

    ASSERT_TRUE(ok);
    const QStringList lines = out.split(QLatin1Char('\n'));
    ASSERT_GE(lines.size(), 3);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral(":/opt/nb-extra")));
    EXPECT_TRUE(lines[0].startsWith(qEnvironmentVariable("PATH").section(QLatin1Char(':'), 0, 0)));
    EXPECT_EQ(lines[1], QStringLiteral("/a:/b:/c"));
    EXPECT_EQ(lines[2], QStringLiteral("v"));
}

TEST(CmdsExec, OneSuccessIsEnoughAndTheFirstFailureStopsTheList)
{
    {
        ScriptedBackend backend;
        backend.expect(QStringLiteral("true"));
        backend.expect(QStringLiteral("false")).exits(1).errs("bad\n");
        QJsonArray errors;
        EXPECT_TRUE(
            cmdsExec({QStringLiteral(" true "), QStringLiteral("false"), QStringLiteral("true")},
                     errors, 3000));
        EXPECT_EQ(errors, QJsonArray{QStringLiteral("bad\n")});
        const QList<LNX2ProcRequest> calls = backend.calls();
        ASSERT_EQ(calls.size(), 2);
        expectLimits(calls[0], 3000);
        expectLimits(calls[1], 3000);
    }
    {
        ScriptedBackend backend;
        backend.expect(QStringLiteral("false")).exits(1);
        QJsonArray errors;
        EXPECT_FALSE(cmdsExec({QStringLiteral("false"), QStringLiteral("true")}, errors, 3000));
        EXPECT_EQ(errors, QJsonArray{QString()});
    }
    ScriptedBackend nothingRuns;
    EXPECT_FALSE(cmdsExec({QStringLiteral("  "), QString(), QStringLiteral("\t")}, 3000));
    EXPECT_FALSE(cmdsExec(QStringList(), 3000));
}

TEST(CmdsExec, FinishWaitsShareOneBudget)
{
    // The first sleep uses 350 ms of the 600 ms budget; the second cannot end.
    QJsonArray errors;
    EXPECT_TRUE(
        cmdsExec({QStringLiteral("sleep 0.35"), QStringLiteral("sleep 0.35")}, errors, 600));
    EXPECT_EQ(errors.size(), 1);
}

TEST(CmdsExec, RealCommandsAfterAFailureDoNotRun)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString marker = dir.filePath(QStringLiteral("later"));
    QJsonArray errors;
    EXPECT_TRUE(
        cmdsExec({sh("echo first"), sh("echo bad >&2; exit 2"), QStringLiteral("touch ") + marker},
                 errors, 5000));
    EXPECT_EQ(errors, QJsonArray{QStringLiteral("bad\n")});
    EXPECT_FALSE(QFile::exists(marker));
}

TEST(ExeCommand, NegativeDetachesZeroExecutesPositiveCaptures)
{
    QByteArray bytes("keep");
    EXPECT_EQ(exeCommand(kMissing, -1, &bytes), 0);
    EXPECT_EQ(bytes, QByteArray("keep"));
    EXPECT_EQ(exeCommand(sh("exit 5"), 0, &bytes), 5);
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_EQ(exeCommand(kMissing, 0, nullptr), -2);

    bytes = "keep";
    EXPECT_EQ(exeCommand(QStringLiteral("sleep 5"), 300, &bytes), kExeNotFinished);
    EXPECT_EQ(exeCommand(kMissing, 1000, &bytes), kExeNotFinished);
    EXPECT_EQ(bytes, QByteArray("keep"));
    EXPECT_EQ(exeCommand(sh("printf 'a\\0b'; echo e >&2"), 5000, &bytes), 0);
    EXPECT_EQ(bytes, QByteArray("a\0b", 3)); // raw, not cut at the zero byte
    EXPECT_EQ(exeCommand(sh("echo o; echo e >&2; exit 4"), 5000, &bytes), 4);
    EXPECT_EQ(bytes, QByteArray("e\n"));
}

TEST(ExecBash, ScriptIsOneArgumentToSudoBash)
{
    ScriptedBackend backend;
    const QString script = QStringLiteral("ls /mnt | wc -l");
    backend.expect(kSudo, {QStringLiteral("/bin/bash"), QStringLiteral("-c"), script})
        .prints("3\n");
    backend.expect(kSudo, {QStringLiteral("/bin/bash"), QStringLiteral("-c"), script})
        .exits(1)
        .prints("ignored")
        .errs("denied");
    QString out;
    EXPECT_TRUE(execBash(script, out, 4000));
    EXPECT_EQ(out, QStringLiteral("3\n"));
    EXPECT_FALSE(execBash(script, out, 4000));
    EXPECT_EQ(out, QStringLiteral("denied"));
    expectLimits(backend.calls().value(0), 4000);
}

TEST(ExecBash, RunsThroughASubstituteSudo)
{
    QTemporaryDir tools;
    ASSERT_TRUE(tools.isValid());
    QFile sudo(tools.filePath(QStringLiteral("sudo")));
    ASSERT_TRUE(sudo.open(QIODevice::WriteOnly));
    sudo.write("#!/bin/sh\nexec \"$@\"\n");
    sudo.close();
    sudo.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("NASBROLT_TOOLS", QFile::encodeName(tools.path()));
    QString out;
    const bool ok = execBash(QStringLiteral("echo \"$((6 * 7))\" | tr 4 x"), out, 5000);
    qunsetenv("NASBROLT_TOOLS");
    EXPECT_TRUE(ok);
    EXPECT_EQ(out, QStringLiteral("x2\n"));
}

TEST(Service, SystemctlCommandLines)
{
    using Fn = bool (*)(const QString&, int);
    const QList<QPair<Fn, QString>> table{
        {serviceStart, QStringLiteral("start")},     {serviceStop, QStringLiteral("stop")},
        {serviceRestart, QStringLiteral("restart")}, {serviceReload, QStringLiteral("reload")},
        {serviceEnable, QStringLiteral("enable")},   {serviceDisable, QStringLiteral("disable")},
    };
    for (const auto& [fn, verb] : table) {
        ScriptedBackend backend;
        const QStringList args{QStringLiteral("systemctl"), verb, QStringLiteral("smbd.service")};
        backend.expect(kSudo, args);
        backend.expect(kSudo, args).exits(5);
        EXPECT_TRUE(fn(QStringLiteral("smbd.service"), 2500)) << verb.toStdString();
        EXPECT_FALSE(fn(QStringLiteral("smbd.service"), 2500)) << verb.toStdString();
        expectLimits(backend.calls().value(0), 2500);
    }
}

TEST(Service, ActivedReadsTheFirstActiveLineOfTheCapturedText)
{
    const QByteArray running = readFixture(QStringLiteral("systemctl/status-active-running.txt"));
    EXPECT_TRUE(activedWith(running, QByteArray(), 0));
    EXPECT_FALSE(activedWith(readFixture(QStringLiteral("systemctl/status-activating-start.txt")),
                             QByteArray(), 0));
    EXPECT_FALSE(activedWith(readFixture(QStringLiteral("systemctl/status-inactive-dead.txt")),
                             QByteArray(), 3));
    EXPECT_FALSE(activedWith(
        QByteArray(), readFixture(QStringLiteral("systemctl/status-unit-not-found.txt")), 4));
    // A failed run is judged by its stderr: stdout is not looked at then.
    EXPECT_FALSE(activedWith(running, QByteArray(), 3));
    EXPECT_TRUE(activedWith(QByteArray(), running, 3));
    EXPECT_FALSE(activedWith(
        QByteArray(),
        readFixture(QStringLiteral("systemctl/status-two-units-inactive-then-active.txt")), 3));
}

TEST(TextHelpers, ShellArgEscapingSurvivesARealShell)
{
    EXPECT_EQ(toShellArgEscaped(QStringLiteral("it's")), QStringLiteral("'it'\\''s'"));
    EXPECT_EQ(toShellArgEscaped(QString()), QStringLiteral("''"));
    const QString nasty = QStringLiteral("a 'b' \"c\" $HOME `id` \\ ;|*\n'");
    const LNX2ProcResult echoed =
        procRun(QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("printf %s ") + toShellArgEscaped(nasty)},
                5000, 5000);
    EXPECT_EQ(QString::fromUtf8(echoed.out), nasty);
}

TEST(TextHelpers, OutputLinesAndOptionPairs)
{
    const char raw[] = "a\r\n\tb c\n\n\r\nd\0e\nf";
    EXPECT_EQ(cmdOutputs(QByteArray(raw, sizeof raw - 1)),
              (QStringList{QStringLiteral("a"), QStringLiteral(" b c"), QStringLiteral("d")}));
    EXPECT_TRUE(cmdOutputs(QByteArray()).isEmpty());

    using Pairs = QHash<QString, QString>;
    EXPECT_EQ(
        cmdArguments(
            {QStringLiteral("-a"), QStringLiteral("-b"), QStringLiteral("1"), QStringLiteral("x")}),
        (Pairs{{QStringLiteral("-a"), QString()}, {QStringLiteral("-b"), QStringLiteral("1")}}));
    EXPECT_EQ(cmdArguments({QStringLiteral("x"), QStringLiteral("--size"), QStringLiteral("1"),
                            QStringLiteral("--size"), QStringLiteral("2"), QStringLiteral("-f")}),
              (Pairs{{QStringLiteral("--size"), QStringLiteral("2")},
                     {QStringLiteral("-f"), QString()}}));
}
