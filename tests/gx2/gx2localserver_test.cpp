#include "gx2/gx2localserver.h"

#include "tests/gx2/testrouters.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QByteArray request(const char* cmd, int seq)
{
    return GX2RpcPacket(QJsonObject{{"cmd", cmd}, {"seq", seq}}).toDatagram();
}

// A raw peer: its writes go out as given once answers() runs the event loop.
struct Peer : QLocalSocket
{
    explicit Peer(const QString& name)
    {
        connectToServer(name);
        EXPECT_TRUE(waitForConnected(2000));
    }

    // Every answer so far, once `count` came or the wait ended.
    QList<GX2RpcPacket> answers(int count, int waitMs = 2000)
    {
        QList<GX2RpcPacket> taken;
        QElapsedTimer timer;
        for (timer.start(); taken.size() < count && timer.elapsed() < waitMs;) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            raw += readAll();
            QByteArray buffer = raw;
            GX2RpcPacket p;
            for (taken.clear(); p.fromDatagram(buffer) <= GX2RpcPacket::KeepAlive;)
                taken << p;
        }
        return taken;
    }

    QByteArray raw; // every byte received
};

// Long enough for the server's event loop to have seen every byte sent.
constexpr int kQuietMs = 150;

class LocalServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server.add(&echo);
        ASSERT_TRUE(server.start(name));
    }

    const QString name = QStringLiteral("nasbrolt-test");
    GX2LocalServer server;
    EchoRouter echo;
};

} // namespace

TEST_F(LocalServerTest, AnswersInOrderOnePerRequest)
{
    Peer peer(name);
    peer.write(request("echo_seq", 1) + request("silent", 2) + request("no_such", 3) +
               request("echo_seq", 4));
    // An empty answer still travels, as a keep-alive.
    EXPECT_EQ(peer.answers(4), (QList<GX2RpcPacket>{QJsonObject{{"err", 0}, {"seq", 1}},
                                                    GX2RpcPacket(), QJsonObject{{"err", 9972}},
                                                    QJsonObject{{"err", 0}, {"seq", 4}}}));
    // The unknown command's answer is that code and nothing else on the wire.
    EXPECT_TRUE(peer.raw.contains(
        QByteArray("\x00gx\x01\x01\x0c\0\0\0\0\0\0\0\xff\xff\xff{\"err\":9972}", 28)));
}

TEST_F(LocalServerTest, PartialInputWaitsForMoreBytes)
{
    Peer peer(name);
    // A datagram split over writes is answered once, when complete.
    const QByteArray bytes = request("echo_seq", 7);
    peer.write(bytes.left(5));
    EXPECT_TRUE(peer.answers(1, kQuietMs).isEmpty());
    peer.write(bytes.mid(5, 10));
    EXPECT_TRUE(peer.answers(1, kQuietMs).isEmpty());
    peer.write(bytes.mid(15));
    EXPECT_EQ(peer.answers(1).size(), 1);

    // A keep-alive ends the pass: a request in the same write waits for more bytes.
    peer.write(GX2RpcPacket::keepAlive() + request("echo_seq", 8));
    EXPECT_EQ(peer.answers(2, kQuietMs).size(), 1);
    peer.write(GX2RpcPacket::keepAlive());
    EXPECT_EQ(peer.answers(2).value(1).value("seq"), 8);
}

TEST_F(LocalServerTest, BadBytesSilenceOnlyTheirConnectionUntilItCloses)
{
    Peer bad(name);
    Peer good(name);
    bad.write("hello there\n");
    EXPECT_TRUE(bad.answers(1, kQuietMs).isEmpty());
    bad.write(request("echo_seq", 1));
    good.write(request("echo_seq", 2));
    EXPECT_EQ(good.answers(1).size(), 1);
    EXPECT_TRUE(bad.answers(1, kQuietMs).isEmpty());

    EXPECT_EQ(server.clientCount(), 2);
    bad.disconnectFromServer();
    QElapsedTimer timer;
    for (timer.start(); server.clientCount() > 1 && timer.elapsed() < 2000;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_EQ(server.clientCount(), 1);
}

TEST_F(LocalServerTest, StaleSocketFileIsReused)
{
    server.stop();
    // Bind and close without unlinking, as a crashed daemon leaves it.
    const QByteArray path = QFile::encodeName(QDir::tempPath() + '/' + name);
    sockaddr_un addr{AF_UNIX, {}};
    ASSERT_LT(size_t(path.size()), sizeof(addr.sun_path));
    memcpy(addr.sun_path, path.constData(), size_t(path.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ::close(fd);

    ASSERT_TRUE(server.start(name));
    Peer peer(name);
    peer.write(request("echo_seq", 1));
    EXPECT_EQ(peer.answers(1).size(), 1);
}

TEST_F(LocalServerTest, AnAnswerThatComesLaterHoldsOnlyItsConnection)
{
    Peer waiting(name);
    Peer other(name);
    waiting.write(request("echo_later", 1) + request("echo_seq", 2));
    other.write(request("echo_seq", 3));
    EXPECT_EQ(other.answers(1).value(0).value("seq"), 3);
    EXPECT_TRUE(waiting.answers(1, kQuietMs).isEmpty());
    ASSERT_EQ(echo.held.size(), 1);
    echo.release();
    const QList<GX2RpcPacket> inOrder = waiting.answers(2);
    ASSERT_EQ(inOrder.size(), 2);
    EXPECT_EQ(inOrder[0].value("seq"), 1);
    EXPECT_EQ(inOrder[1].value("seq"), 2);

    // A peer gone before its answer: the answer is dropped, nothing else happens.
    {
        Peer leaving(name);
        leaving.write(request("echo_later", 4));
        leaving.answers(1, kQuietMs);
    }
    QElapsedTimer timer;
    for (timer.start(); server.clientCount() > 2 && timer.elapsed() < 2000;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    ASSERT_EQ(echo.held.size(), 1);
    echo.release();
    other.write(request("echo_seq", 5));
    EXPECT_EQ(other.answers(2).value(1).value("seq"), 5);
}

TEST(LocalServerAccess, RootSelfAndTheGroupOnly)
{
    const gid_t group = 33;
    const uid_t self = 1000;
    const auto peer = [](uid_t uid, gid_t gid, QList<gid_t> groups) {
        GX2Peer p;
        p.uid = uid;
        p.gid = gid;
        p.groups = groups;
        return p;
    };
    EXPECT_TRUE(GX2LocalServer::admits(peer(0, 0, {}), group, self));
    EXPECT_TRUE(GX2LocalServer::admits(peer(self, 100, {}), group, self));
    EXPECT_TRUE(GX2LocalServer::admits(peer(4242, group, {}), group, self));
    EXPECT_TRUE(GX2LocalServer::admits(peer(4242, 100, {7, group}), group, self));
    EXPECT_FALSE(GX2LocalServer::admits(peer(4242, 100, {7}), group, self));
    // An unknown group lets nobody in but root and the daemon's own user.
    EXPECT_FALSE(GX2LocalServer::admits(peer(4242, 100, {100}), gid_t(-1), self));
    EXPECT_FALSE(GX2LocalServer::admits(GX2Peer(), group, self)); // no credentials at all
}
