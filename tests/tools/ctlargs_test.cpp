#include "tools/ctlargs.h"
#include "tools/ctlcall.h"

#include "lnx2/lnx2process.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <tuple>

namespace {

// A command line without quoting: words split at single spaces.
bool parse(const char* line, QString& message, CtlArgs& args)
{
    return parseCtlArgs(message, QString::fromUtf8(line).split(' ', Qt::SkipEmptyParts), args);
}

CtlArgs accepted(const char* line)
{
    QString message;
    CtlArgs args;
    EXPECT_TRUE(parse(line, message, args)) << line << ": " << message.toStdString();
    return args;
}

} // namespace

TEST(CtlArgs, ValuesAreStringsUnlessMarkedAsJsonAndParamsOnlyWhenGiven)
{
    const char* const cases[][2] = {
        {"lvm_formating vg=vg0 size=10 n:=10 on:=true gone:=null tags:=[\"a\",1] o:={\"x\":2} "
         "s:=\"q\" empty= url=a=b a:b=c text=数据",
         R"({"cmd":"lvm_formating","params":{"a:b":"c","empty":"","gone":null,"n":10,)"
         R"("o":{"x":2},"on":true,"s":"q","size":"10","tags":["a",1],"text":"数据",)"
         R"("url":"a=b","vg":"vg0"}})"},
        {"raid_limit_speeds", R"({"cmd":"raid_limit_speeds"})"},
        {"x {}", R"({"cmd":"x","params":{}})"},
        {R"(x {"vg":"a","n":[1]})", R"({"cmd":"x","params":{"n":[1],"vg":"a"}})"},
        {"x -- -r=1", R"({"cmd":"x","params":{"-r":"1"}})"}, // "--" ends the options
    };
    for (const auto& c : cases)
        EXPECT_EQ(QJsonDocument(accepted(c[0]).request()).toJson(QJsonDocument::Compact), c[1]);
}

TEST(CtlArgs, OptionsGoAnywhere)
{
    const std::tuple<const char*, bool, int, QString> cases[] = {
        {"x a=1 --timeout=500 --socket /run/sock --raw", true, 500, "/run/sock"},
        {"-rt250 x", true, 250, kBroltSocketName},
        {"x -t 9", false, 9, kBroltSocketName},
        {"x", false, kCtlDefaultTimeoutMs, "QUILLO_BROLT_TELMAR_ORVO"},
    };
    for (const auto& [line, raw, timeoutMs, socket] : cases) {
        const CtlArgs args = accepted(line);
        EXPECT_EQ(std::make_tuple(args.raw, args.timeoutMs, args.socket),
                  std::make_tuple(raw, timeoutMs, socket))
            << line;
    }
    // Help wins over whatever follows it, as with getopt.
    EXPECT_EQ(accepted("-h --bogus").action, CtlArgs::Action::Help);
    EXPECT_EQ(accepted("x --version").action, CtlArgs::Action::Version);
}

TEST(CtlArgs, BadCommandLinesSayWhatIsWrong)
{
    const char* const cases[][2] = {
        {"", "missing command"},
        {"a=1", "'a=1' is not a command name"},
        {"--bogus x", "unrecognized option '--bogus'"},
        {"-x x", "invalid option -- 'x'"},
        {"x -t", "requires an argument"},
        {"x --timeout=0", "'0'"},
        {"x --raw=1", "doesn't allow"},
        {"x word", "unexpected argument 'word'"},
        {"x =v", "missing parameter name"},
        {"x a=1 a:=2", "'a' given twice"},
        {"x n:=tru", "for 'n': tru"},
        {"x n:=1,2", "for 'n'"},
        {"x {\"a\":", "invalid JSON object"},
        {"x {} a=1", "cannot mix"},
        {"x a=1 {}", "must be the only"},
        {"--watch", "missing command"},
        {"--watch 0 x", "invalid interval '0': seconds above 0 expected"},
        {"--watch=abc x", "invalid interval 'abc'"},
        {"--watch 1x x", "invalid interval '1x'"},
        {"--watch -2 x", "invalid interval '-2'"},
        {"--watch=nan x", "invalid interval 'nan'"},
        {"top 0", "invalid interval '0'"},
        {"top a=1", "invalid interval 'a=1'"},
        {"top 1 2", "unexpected argument '2'"},
        {"--watch top", "top refreshes by itself"},
        {"codes x", "unexpected argument 'x': codes takes none"},
        {"--watch codes", "no --watch"},
    };
    for (const auto& c : cases) {
        QString message;
        CtlArgs args;
        EXPECT_FALSE(parse(c[0], message, args)) << c[0];
        EXPECT_TRUE(message.contains(QString::fromUtf8(c[1])))
            << c[0] << " -> " << qPrintable(message);
    }
}

TEST(CtlArgs, WatchAndTopTakeSecondsWhereACommandCannotStart)
{
    using A = CtlArgs::Action;
    const std::tuple<const char*, A, bool, double, QString> cases[] = {
        {"--watch naslog_recent", A::Call, true, 2.0, "naslog_recent"},
        {"--watch 0.5 x", A::Call, true, 0.5, "x"},
        {"--watch=3 x", A::Call, true, 3.0, "x"},
        {"x --watch", A::Call, true, 2.0, "x"},
        {"x --watch .25", A::Call, true, 0.25, "x"},
        {"top", A::Top, false, 2.0, "top"},
        {"-t 500 top 1.5", A::Top, false, 1.5, "top"},
        {"-r codes", A::Codes, false, 2.0, "codes"},
    };
    for (const auto& [line, action, watch, seconds, command] : cases) {
        const CtlArgs args = accepted(line);
        EXPECT_EQ(std::make_tuple(args.action, args.watch, args.intervalS, args.command),
                  std::make_tuple(action, watch, seconds, command))
            << line;
    }
    // Parameters after the interval still belong to the command.
    EXPECT_EQ(accepted("--watch 1 x a=1").params, (QJsonObject{{"a", "1"}}));

    const LNX2ProcResult r =
        procRun(NASBROLT_BUILD_DIR "/nasbroltctl", {"--watch", "0", "x"}, 5000, 20000);
    EXPECT_EQ(r.exitCode, kCtlExitUsage);
    EXPECT_TRUE(r.err.startsWith("nasbroltctl: invalid interval '0'")) << r.err.data();
}

TEST(CtlRender, OnlyNumericZeroOrNoErrIsSuccessAndTheCommandScopesTheMeaning)
{
    // {command, answer, stderr}
    const std::tuple<QString, QJsonObject, QByteArray> cases[] = {
        {"x", {{"err", "0"}}, "error \"0\""},
        {"x", {{"err", 9990.5}}, "error 9990.5"},
        {"x", {{"err", 1234}}, "error 1234"},
        {"smbaudit_log_loadby", {{"err", 9908}}, "error 9908: the audit database is not open"},
        {"lvm_creating",
         {{"err", 9995}, {"errmsg", "bad"}},
         "error 9995: a volume only grows; or a refused name or password: bad"},
    };
    for (const auto& [command, answer, err] : cases) {
        const CtlReply reply{CtlReply::Outcome::Answered, answer, QString(), command};
        const CtlOutput output = ctlRender(reply, QString(), true);
        EXPECT_EQ(std::make_tuple(output.status, output.err),
                  std::make_tuple(int(kCtlExitFailed), "nasbroltctl: " + err + '\n'));
    }
}
