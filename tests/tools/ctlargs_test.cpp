#include "tools/ctlargs.h"
#include "tools/ctlcall.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

std::string compact(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

// A command line without quoting: words split at single spaces.
QStringList words(const char* line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

CtlArgs accepted(const char* line)
{
    QString message;
    CtlArgs args;
    EXPECT_TRUE(parseCtlArgs(message, words(line), args)) << line << ": " << message.toStdString();
    return args;
}

} // namespace

TEST(CtlArgs, ValuesAreStringsUnlessMarkedAsJson)
{
    const CtlArgs args = accepted("lvm_formating vg=vg0 size=10 n:=10 on:=true gone:=null "
                                  "tags:=[\"a\",1] o:={\"x\":2} s:=\"q\" empty= url=a=b a:b=c "
                                  "text=数据");
    EXPECT_EQ(compact(args.request()),
              R"({"cmd":"lvm_formating","params":{"a:b":"c","empty":"","gone":null,"n":10,)"
              R"("o":{"x":2},"on":true,"s":"q","size":"10","tags":["a",1],"text":"数据",)"
              R"("url":"a=b","vg":"vg0"}})");
}

TEST(CtlArgs, ParamsKeyOnlyWhenParamsGiven)
{
    EXPECT_EQ(compact(accepted("raid_limit_speeds").request()), R"({"cmd":"raid_limit_speeds"})");
    EXPECT_EQ(compact(accepted("x {}").request()), R"({"cmd":"x","params":{}})");
    EXPECT_EQ(compact(accepted(R"(x {"vg":"a","n":[1]})").request()),
              R"({"cmd":"x","params":{"n":[1],"vg":"a"}})");
}

TEST(CtlArgs, OptionsGoAnywhereUntilDoubleDash)
{
    CtlArgs args = accepted("x a=1 --timeout=500 --socket /run/sock --raw");
    EXPECT_TRUE(args.raw);
    EXPECT_EQ(args.timeoutMs, 500);
    EXPECT_EQ(args.socket, QStringLiteral("/run/sock"));
    EXPECT_EQ(compact(args.params), R"({"a":"1"})");

    args = accepted("-rt250 x");
    EXPECT_TRUE(args.raw);
    EXPECT_EQ(args.timeoutMs, 250);

    args = accepted("x -t 9 -- -r=1");
    EXPECT_FALSE(args.raw);
    EXPECT_EQ(args.timeoutMs, 9);
    EXPECT_EQ(compact(args.params), R"({"-r":"1"})");

    args = accepted("x");
    EXPECT_EQ(args.timeoutMs, kCtlDefaultTimeoutMs);
    EXPECT_EQ(args.socket, QStringLiteral("QUILLO_BROLT_TELMAR_ORVO"));
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
        {"x -t abc", "'abc'"},
        {"x --timeout=0", "'0'"},
        {"x --raw=1", "doesn't allow"},
        {"x --socket=", "empty socket"},
        {"x word", "unexpected argument 'word'"},
        {"x =v", "missing parameter name"},
        {"x a=1 a:=2", "'a' given twice"},
        {"x n:=tru", "for 'n': tru"},
        {"x n:=", "for 'n'"},
        {"x n:=1,2", "for 'n'"},
        {"x {\"a\":", "invalid JSON object"},
        {"x {} a=1", "cannot mix"},
        {"x a=1 {}", "must be the only"},
    };
    for (const auto& c : cases) {
        QString message;
        CtlArgs args;
        EXPECT_FALSE(parseCtlArgs(message, words(c[0]), args)) << c[0];
        EXPECT_TRUE(message.contains(QString::fromUtf8(c[1])))
            << c[0] << " -> " << message.toStdString();
    }
}

TEST(CtlRender, OnlyNumericZeroOrNoErrIsSuccess)
{
    CtlReply reply;
    reply.outcome = CtlReply::Outcome::Answered;
    reply.response = QJsonObject{{QStringLiteral("err"), 0},
                                 {QStringLiteral("errmsg"), QStringLiteral("ignored")}};
    EXPECT_EQ(ctlRender(reply, QString(), true).status, kCtlExitOk);
    reply.response = QJsonObject{{QStringLiteral("err"), QStringLiteral("odd")}};
    const CtlOutput odd = ctlRender(reply, QString(), true);
    EXPECT_EQ(odd.status, kCtlExitFailed);
    EXPECT_EQ(odd.err, QByteArray("nasbroltctl: error \"odd\"\n"));
}
