// The built nasbroltctl against real local sockets.

#include "gx2/gx2errors.h"
#include "gx2/gx2localserver.h"
#include "lnx2/lnx2process.h"

#include <QDir>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSemaphore>
#include <QThread>

#include <gtest/gtest.h>

#include <functional>

namespace {

const QString kSocket = QStringLiteral("CTL_TEST_SOCKET");

class CtlTestRouter : public GX2TodoRouter
{
    Q_OBJECT

private slots:
    void ctl_echo(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        retObject->insert(QStringLiteral("err"), 0);
        retObject->insert(QStringLiteral("results"), QJsonObject(cmdObject));
    }

    void ctl_refuse(GX2RpcPacket* retObject, GX2RpcPacket)
    {
        retObject->insert(QStringLiteral("err"), kErrBadParam);
        retObject->insert(QStringLiteral("errmsg"), QStringLiteral("参数 dev 为空"));
    }

    void ctl_idle(GX2RpcPacket*, GX2RpcPacket) {}
};

// The client blocks the test's thread, so servers run their loop here.
class ServerThread : public QThread
{
public:
    using Body = std::function<void(ServerThread&)>;

    explicit ServerThread(Body body) : body(std::move(body)) {}
    ~ServerThread() override
    {
        quit();
        wait();
    }

    bool serve()
    {
        start();
        ready.acquire();
        return listening;
    }
    void report(bool ok)
    {
        listening = ok;
        ready.release();
    }
    void loop() { exec(); }

protected:
    void run() override { body(*this); }

private:
    Body body;
    QSemaphore ready;
    bool listening = false;
};

void serveRouter(ServerThread& thread)
{
    GX2LocalServer server;
    CtlTestRouter router;
    server.add(&router);
    thread.report(server.start(kSocket) && server.isListening());
    thread.loop();
}

// Accepts and hangs up at once, as a daemon dying mid-command would.
void serveHangUp(ServerThread& thread)
{
    QLocalServer server;
    QObject::connect(&server, &QLocalServer::newConnection,
                     [&server] { delete server.nextPendingConnection(); });
    thread.report(server.listen(kSocket));
    thread.loop();
}

struct CtlRun
{
    int status = -1;
    QString out;
    QString err;
};

CtlRun runCtl(const QStringList& arguments)
{
    LNX2ProcRequest request;
    request.program = QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltctl");
    request.arguments = QStringList{QStringLiteral("--socket"), kSocket} + arguments;
    request.env.insert(QStringLiteral("TMPDIR"), QDir::tempPath());
    request.envRule = LNX2EnvRule::Set;
    request.startMs = 5000;
    request.finishMs = 20000;
    const LNX2ProcResult result = procRun(request);
    EXPECT_TRUE(result.finished && result.normalExit) << arguments.join(' ').toStdString();
    return {result.exitCode, QString::fromUtf8(result.out), QString::fromUtf8(result.err)};
}

QJsonObject parsedOut(const CtlRun& run)
{
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

} // namespace

TEST(Nasbroltctl, AnswersArePrintedAsJson)
{
    ServerThread server(serveRouter);
    ASSERT_TRUE(server.serve());

    const CtlRun typed =
        runCtl({QStringLiteral("ctl_echo"), QStringLiteral("vg=vg0"), QStringLiteral("n:=5")});
    EXPECT_EQ(typed.status, 0);
    EXPECT_EQ(typed.err, QString());
    EXPECT_TRUE(typed.out.contains(QStringLiteral("\n    \"err\": 0"))) << typed.out.toStdString();
    const QJsonObject sent = parsedOut(typed).value(QStringLiteral("results")).toObject();
    EXPECT_EQ(sent, (QJsonObject{{QStringLiteral("cmd"), QStringLiteral("ctl_echo")},
                                 {QStringLiteral("params"),
                                  QJsonObject{{QStringLiteral("vg"), QStringLiteral("vg0")},
                                              {QStringLiteral("n"), 5}}}}));

    const CtlRun raw = runCtl({QStringLiteral("-r"), QStringLiteral("ctl_echo")});
    EXPECT_EQ(raw.status, 0);
    EXPECT_EQ(raw.out, QStringLiteral(R"({"err":0,"results":{"cmd":"ctl_echo"}})"
                                      "\n"));

    const CtlRun idle = runCtl({QStringLiteral("ctl_idle")});
    EXPECT_EQ(idle.status, 0);
    EXPECT_EQ(idle.out, QStringLiteral("{}\n"));
}

TEST(Nasbroltctl, NonZeroErrExitsOneWithTheMessage)
{
    ServerThread server(serveRouter);
    ASSERT_TRUE(server.serve());

    const CtlRun refused = runCtl({QStringLiteral("ctl_refuse"), QStringLiteral("dev=")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(parsedOut(refused).value(QStringLiteral("err")).toInt(), kErrBadParam);
    EXPECT_EQ(refused.err, QStringLiteral("nasbroltctl: error 9995: 参数 dev 为空\n"));

    const CtlRun unknown = runCtl({QStringLiteral("no_such_command")});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, QStringLiteral("nasbroltctl: error 9972\n"));
}

TEST(Nasbroltctl, MissingOrSilentDaemonHasItsOwnStatus)
{
    const CtlRun absent = runCtl({QStringLiteral("ctl_echo")});
    EXPECT_EQ(absent.status, 3);
    EXPECT_TRUE(absent.err.contains(QDir::tempPath() + QLatin1Char('/') + kSocket));
    EXPECT_TRUE(absent.err.contains(QStringLiteral("is the daemon running?")));
    EXPECT_EQ(absent.out, QString());

    {
        // Listening without an event loop: connections are queued, never answered.
        QLocalServer silent;
        ASSERT_TRUE(silent.listen(kSocket));
        const CtlRun waited =
            runCtl({QStringLiteral("-t"), QStringLiteral("300"), QStringLiteral("ctl_echo")});
        EXPECT_EQ(waited.status, 4);
        EXPECT_TRUE(waited.err.contains(QStringLiteral("no answer within 300 ms")));
    }

    ServerThread hangUp(serveHangUp);
    ASSERT_TRUE(hangUp.serve());
    const CtlRun dropped = runCtl({QStringLiteral("ctl_echo")});
    EXPECT_EQ(dropped.status, 4);
    EXPECT_TRUE(dropped.err.contains(QStringLiteral("closed before an answer")))
        << dropped.err.toStdString();
}

TEST(Nasbroltctl, UsageErrorsAndHelp)
{
    const CtlRun bad = runCtl({QStringLiteral("ctl_echo"), QStringLiteral("word")});
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.out, QString());
    EXPECT_TRUE(bad.err.startsWith(QStringLiteral("nasbroltctl: unexpected argument 'word'")));
    EXPECT_TRUE(bad.err.contains(QStringLiteral("--help")));

    const CtlRun help = runCtl({QStringLiteral("--help")});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.startsWith(QStringLiteral("Usage: nasbroltctl")));
    EXPECT_TRUE(help.out.contains(QStringLiteral("Exit status")));
    EXPECT_EQ(help.err, QString());
}

#include "nasbroltctl_test.moc"
