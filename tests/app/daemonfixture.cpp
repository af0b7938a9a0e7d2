#include "tests/app/daemonfixture.h"

#include "gx2/gx2rpcpacket.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <csignal>
#include <sys/wait.h>

void DaemonTest::SetUp()
{
    ASSERT_TRUE(base.isValid());
    for (const char* d : {"root", "tmp", "tools"})
        ASSERT_TRUE(QDir(base.path()).mkpath(QString::fromLatin1(d)));
    ASSERT_TRUE(writeSubstituteTools(path(QStringLiteral("tools"))));
}

QString DaemonTest::socketPath() const
{
    return path(QStringLiteral("tmp/QUILLO_BROLT_TELMAR_ORVO"));
}

void DaemonTest::write(const QString& relative, const QByteArray& content) const
{
    QDir().mkpath(QFileInfo(path(relative)).path());
    QFile f(path(relative));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(content);
}

void DaemonTest::tool(const QString& name, const QByteArray& script) const
{
    const QString at = QStringLiteral("tools/") + name;
    write(at, script);
    QFile::setPermissions(path(at), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void DaemonTest::startDaemon()
{
    ASSERT_TRUE(startSandboxDaemon(daemon, base.path()));
    ASSERT_TRUE(sandboxListening(base.path(), 20000)) << "the daemon did not start listening";
}

void DaemonTest::stopDaemon(int limitMs)
{
    ASSERT_GT(daemon.pid, 0);
    ASSERT_EQ(::kill(pid_t(daemon.pid), SIGTERM), 0);
    int status = 0;
    ASSERT_TRUE(daemon.ended(limitMs, &status)) << "SIGTERM did not end the daemon";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "wait status " << status << "\n"
        << file(QStringLiteral("daemon.out")).constData();
}

LNX2ProcResult DaemonTest::ctl(const QStringList& args) const
{
    return procRun(
        sandboxRequest(base.path(), QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltctl"), args));
}

LNX2ProcResult DaemonTest::ctlAs(int uid, const QString& groups, const QString& caps,
                                 const QStringList& args) const
{
    QStringList line{QStringLiteral("--reuid=%1").arg(uid), QStringLiteral("--regid=%1").arg(uid)};
    line << (groups.isEmpty() ? QStringLiteral("--clear-groups")
                              : QStringLiteral("--groups=") + groups);
    if (!caps.isEmpty())
        line << QStringLiteral("--inh-caps=") + caps << QStringLiteral("--ambient-caps=") + caps;
    line << QStringLiteral(NASBROLT_BUILD_DIR "/nasbroltctl") << args;
    return procRun(sandboxRequest(base.path(), QStringLiteral("setpriv"), line));
}

RawClient::RawClient(const QString& socketPath)
{
    socket.connectToServer(socketPath);
    socket.waitForConnected(5000);
}

void RawClient::send(const QByteArray& bytes)
{
    socket.write(bytes);
    socket.waitForBytesWritten(5000);
}

void RawClient::send(const QJsonObject& request)
{
    send(GX2RpcPacket(request).toDatagram());
}

QJsonObject RawClient::answer(int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    GX2RpcPacket packet;
    while (packet.fromDatagram(buffer) != GX2RpcPacket::Taken) {
        const int left = limitMs - int(timer.elapsed());
        if (left <= 0 || !socket.waitForReadyRead(left))
            return {};
        buffer += socket.readAll();
    }
    return packet;
}

bool RawClient::closedWithin(int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    while (socket.state() == QLocalSocket::ConnectedState && timer.elapsed() < limitMs) {
        socket.waitForReadyRead(50);
        buffer += socket.readAll();
    }
    return socket.state() != QLocalSocket::ConnectedState;
}
