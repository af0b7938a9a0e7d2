// The built nasbroltctl against real local sockets.

#include "gx2/gx2errors.h"
#include "gx2/gx2localserver.h"
#include "lnx2/lnx2process.h"

#include <QDir>
#include <QEventLoop>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

namespace {

const QString kSocket = QStringLiteral("CTL_TEST_SOCKET");

class CtlTestRouter : public GX2TodoRouter
{
    Q_OBJECT

private slots:
    void ctl_echo(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        retObject->insert("err", 0);
        retObject->insert("results", QJsonObject(cmdObject));
    }
    void ctl_no(GX2RpcPacket* retObject, GX2RpcPacket)
    {
        retObject->insert("err", kErrBadParam);
        retObject->insert("errmsg", "é");
    }
    void ctl_idle(GX2RpcPacket*, GX2RpcPacket) {}
};

// The servers answer from this thread's event loop while the client runs in another.
LNX2ProcResult runCtl(const QStringList& arguments)
{
    QEventLoop loop;
    LNX2ProcResult r;
    std::thread client([&] {
        r = procRun(NASBROLT_BUILD_DIR "/nasbroltctl", QStringList{"--socket", kSocket} + arguments,
                    5000, 20000);
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    client.join();
    EXPECT_TRUE(r.finished && r.normalExit) << qPrintable(arguments.join(' '));
    return r;
}

} // namespace

TEST(Nasbroltctl, AnswersArePrintedAsJsonWithTheExitStatusOfTheirErr)
{
    GX2LocalServer server;
    CtlTestRouter router;
    server.add(&router);
    ASSERT_TRUE(server.start(kSocket) && server.isListening());
    const QByteArray echoed =
        "{\"err\":0,\"results\":{\"cmd\":\"ctl_echo\",\"params\":{\"n\":5,\"vg\":\"vg0\"}}}\n";
    const QByteArray usage = "nasbroltctl: unrecognized option '--bogus'\n"
                             "Try 'nasbroltctl --help' for more information.\n";
    // {arguments, exit status, stdout, stderr}
    const std::tuple<QStringList, int, QByteArray, QByteArray> cases[] = {
        {{"-r", "ctl_echo", "vg=vg0", "n:=5"}, 0, echoed, ""},
        {{"ctl_idle"}, 0, "{}\n", ""}, // an empty answer
        {{"-r", "ctl_no"},
         1,
         "{\"err\":9995,\"errmsg\":\"é\"}\n",
         "nasbroltctl: error 9995: a required parameter is missing or invalid: é\n"},
        {{"no_such_command"},
         1,
         "{\n    \"err\": 9972\n}\n",
         "nasbroltctl: error 9972: unknown command\n"},
        {{"--bogus"}, 2, "", usage},
    };
    for (const auto& [args, status, out, err] : cases) {
        const LNX2ProcResult r = runCtl(args);
        EXPECT_EQ(std::make_tuple(r.exitCode, r.out, r.err), std::make_tuple(status, out, err))
            << qPrintable(args.join(' '));
    }
}

TEST(Nasbroltctl, MissingSilentOrDroppingDaemonHasItsOwnStatus)
{
    const LNX2ProcResult absent = runCtl({"ctl_echo"});
    EXPECT_EQ(absent.exitCode, 3);
    // The table of codes needs no daemon.
    const LNX2ProcResult codes = runCtl({"codes"});
    EXPECT_EQ(std::make_tuple(codes.exitCode, codes.err), std::make_tuple(0, QByteArray()));
    EXPECT_TRUE(QString::fromUtf8(codes.out).contains(
        QRegularExpression("\n9990 +daemon +a write failed\n")))
        << codes.out.data();
    EXPECT_TRUE(absent.err.contains(QFile::encodeName(QDir::tempPath() + '/' + kSocket)));
    EXPECT_EQ(absent.out, QByteArray());

    QLocalServer server; // accepts, but never answers
    ASSERT_TRUE(server.listen(kSocket));
    const LNX2ProcResult waited = runCtl({"-t", "300", "ctl_echo"});
    EXPECT_EQ(waited.exitCode, 4);
    EXPECT_TRUE(waited.err.contains("no answer within 300 ms")) << waited.err.data();

    // Hanging up at once, as a daemon dying mid-command would.
    QObject::connect(&server, &QLocalServer::newConnection, [&server] {
        while (server.hasPendingConnections())
            delete server.nextPendingConnection();
    });
    const LNX2ProcResult dropped = runCtl({"ctl_echo"});
    EXPECT_EQ(dropped.exitCode, 4);
    EXPECT_TRUE(dropped.err.contains("closed before an answer")) << dropped.err.data();
}

#include "nasbroltctl_test.moc"
