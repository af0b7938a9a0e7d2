#include "lnx2/lnx2utils.h"

#include "tests/support/scriptedbackend.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <tuple>

namespace {

const QString kSudo = QStringLiteral("/usr/bin/sudo");
const QString kMissing = QStringLiteral("/nonexistent/nasbrolt-tool");

QString sh(const char* script)
{
    return QStringLiteral("sh -c \"") + QString::fromUtf8(script) + QLatin1Char('"');
}

} // namespace

TEST(CmdExec, StdoutOnSuccessStderrOnAnyFailure)
{
    const std::tuple<QString, bool, const char*> cases[] = {
        {"true", true, ""},
        {"false", false, ""},
        {sh("echo out; echo err >&2"), true, "out\n"},
        {sh("echo out; echo err >&2; exit 3"), false, "err\n"},
        {sh("echo err >&2; kill -9 $$"), false, "err\n"},           // a crash is a failure
        {sh("printf 'gr\\303\\274n\\0tail'"), true, "gr\xc3\xbcn"}, // UTF-8 up to a zero byte
        {sh("echo partial >&2; exec sleep 5"), false, "partial\n"}, // timed out, killed
        {kMissing, false, ""},
    };
    QElapsedTimer timer;
    timer.start();
    for (const auto& [command, ok, text] : cases) {
        QString out = QStringLiteral("stale");
        EXPECT_EQ(cmdExec(command, out, 700), ok) << qPrintable(command);
        EXPECT_EQ(out, QString::fromUtf8(text)) << qPrintable(command);
    }
    EXPECT_LT(timer.elapsed(), 4000); // the sleep was not waited for
}

TEST(CmdExec, EnvAppendsToExistingVariablesAndSetsNewOnes)
{
    qputenv("NASBROLT_LIST", ":/a::/b:");
    QString out;
    cmdExec({{"PATH", "/opt/nb-extra"}, {"NASBROLT_LIST", "/c"}, {"NASBROLT_NEW", "v"}},
            sh("echo $PATH,$NASBROLT_LIST,$NASBROLT_NEW"), out, 5000);
    qunsetenv("NASBROLT_LIST");
    EXPECT_EQ(out, qEnvironmentVariable("PATH") + QStringLiteral(":/opt/nb-extra,/a:/b:/c,v\n"));
}

TEST(CmdsExec, OneSuccessIsEnoughAndTheFirstFailureStopsTheList)
{
    QTemporaryDir dir;
    const QString marker = dir.filePath("later");
    const QString touch = "touch " + marker;
    QJsonArray errors;
    // Blank entries are skipped, not run as failures.
    EXPECT_TRUE(cmdsExec({" ", sh("echo first"), sh("echo bad >&2; exit 2"), touch}, errors, 5000));
    EXPECT_FALSE(cmdsExec({"false", touch}, errors, 5000));
    EXPECT_EQ(errors, (QJsonArray{"bad\n", ""})); // appended
    EXPECT_FALSE(QFile::exists(marker));
    EXPECT_FALSE(cmdsExec(QStringList(), 3000));

    // The finish waits share one budget: the first sleep leaves too little for the second.
    EXPECT_TRUE(cmdsExec({"sleep 0.35", "sleep 0.35"}, errors, 600));
    EXPECT_EQ(errors.size(), 3);
}

TEST(ExeCommand, NegativeDetachesZeroExecutesPositiveCaptures)
{
    QByteArray bytes("keep");
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(exeCommand(sh("exec >/dev/null 2>&1; sleep 2"), -1, &bytes), 0);
    EXPECT_EQ(exeCommand("sleep 5", 300, &bytes), kExeNotFinished);
    EXPECT_EQ(exeCommand(kMissing, 1000, &bytes), kExeNotFinished);
    EXPECT_LT(timer.elapsed(), 1500); // neither sleep was waited for
    EXPECT_EQ(bytes, QByteArray("keep"));
    EXPECT_EQ(exeCommand(sh("exit 5"), 0, &bytes), 5);
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_EQ(exeCommand(sh("printf 'a\\0b'; echo e >&2"), 5000, &bytes), 0);
    EXPECT_EQ(bytes, QByteArray("a\0b", 3)); // raw, not cut at the zero byte
    EXPECT_EQ(exeCommand(sh("echo o; echo e >&2; exit 4"), 5000, &bytes), 4);
    EXPECT_EQ(bytes, QByteArray("e\n"));
}

TEST(Sudo, HelpersRunTheirCommandLineWithTheLimit)
{
    using Fn = bool (*)(const QString&, int);
    const std::tuple<Fn, QString, QStringList> cases[] = {
        {serviceStart, "smbd", {"systemctl", "start", "smbd"}},
        {serviceStop, "smbd", {"systemctl", "stop", "smbd"}},
        {serviceRestart, "smbd", {"systemctl", "restart", "smbd"}},
        {serviceReload, "smbd", {"systemctl", "reload", "smbd"}},
        {serviceEnable, "smbd", {"systemctl", "enable", "smbd"}},
        {serviceDisable, "smbd", {"systemctl", "disable", "smbd"}},
        {execBash, "ls /mnt | wc -l", {"/bin/bash", "-c", "ls /mnt | wc -l"}}, // one argument
    };
    for (const auto& [fn, arg, expected] : cases) {
        ScriptedBackend backend;
        backend.expect(kSudo, expected);
        backend.expect(kSudo, expected).exits(5);
        EXPECT_TRUE(fn(arg, 2500)) << qPrintable(expected.join(' '));
        EXPECT_FALSE(fn(arg, 2500)) << qPrintable(expected.join(' '));
        const LNX2ProcRequest call = backend.calls().value(0);
        EXPECT_EQ(QList<int>({call.startMs, call.finishMs}), QList<int>({2500, 2500}));
    }
}

TEST(Service, ActivedReadsTheFirstActiveLineOfTheCapturedText)
{
    // {recorded status text, on stderr, exit code, active}
    const std::tuple<const char*, bool, int, bool> cases[] = {
        {"active-running", false, 0, true},
        {"activating-start", false, 0, false},
        {"inactive-dead", false, 3, false},
        {"unit-not-found", true, 4, false},
        {"active-running", true, 3, true}, // a failed run is judged by its stderr
        {"two-units-inactive-then-active", true, 3, false},
    };
    for (const auto& [fixture, onStderr, code, active] : cases) {
        const QByteArray text = readFixture(QStringLiteral("systemctl/status-") + fixture + ".txt");
        ScriptedBackend backend;
        backend.expect(kSudo, {"systemctl", "status", "smbd"})
            .prints(onStderr ? QByteArray() : text)
            .errs(onStderr ? text : QByteArray())
            .exits(code);
        EXPECT_EQ(serviceActived("smbd", 3000), active) << fixture << " exit " << code;
    }
}

TEST(TextHelpers, ShellEscapingOutputLinesAndOptionPairs)
{
    EXPECT_EQ(toShellArgEscaped("it's"), QStringLiteral("'it'\\''s'"));
    EXPECT_EQ(toShellArgEscaped(QString()), QStringLiteral("''"));
    const QString nasty = QStringLiteral("a 'b' \"c\" $HOME `id` \\ ;|*\n'");
    const LNX2ProcResult echoed =
        procRun("sh", {"-c", "printf %s " + toShellArgEscaped(nasty)}, 5000, 5000);
    EXPECT_EQ(QString::fromUtf8(echoed.out), nasty);

    const char raw[] = "a\r\n\tb c\n\n\r\nd\0e\nf";
    EXPECT_EQ(cmdOutputs(QByteArray(raw, sizeof raw - 1)), (QStringList{"a", " b c", "d"}));

    using Pairs = QHash<QString, QString>;
    EXPECT_EQ(cmdArguments({"-a", "-b", "1", "x"}), (Pairs{{"-a", ""}, {"-b", "1"}}));
    EXPECT_EQ(cmdArguments({"x", "--size", "1", "--size", "2", "-f"}),
              (Pairs{{"--size", "2"}, {"-f", ""}}));
}
