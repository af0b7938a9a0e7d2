#include "gx2/gx2localserver.h"

#include "tests/gx2/testrouters.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QLocalSocket>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

QByteArray request(const char* cmd, int seq)
{
    GX2RpcPacket p;
    p.insert(QStringLiteral("cmd"), QString::fromUtf8(cmd));
    p.insert(QStringLiteral("seq"), seq);
    return p.toDatagram();
}

// A raw peer: writes bytes as given and collects whole answers.
class Peer
{
public:
    explicit Peer(const QString& name)
    {
        socket.connectToServer(name);
        EXPECT_TRUE(socket.waitForConnected(2000));
    }

    void send(const QByteArray& bytes)
    {
        socket.write(bytes);
        socket.flush();
    }

    // Runs the event loop until `count` answers came or the wait ended.
    QList<GX2RpcPacket> answers(int count, int waitMs = 2000)
    {
        QElapsedTimer timer;
        timer.start();
        while (taken.size() < count && timer.elapsed() < waitMs) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            const QByteArray chunk = socket.readAll();
            raw += chunk;
            buffer += chunk;
            takeAll();
        }
        return taken;
    }

    QByteArray raw; // every byte received

private:
    void takeAll()
    {
        GX2RpcPacket p;
        int r;
        while ((r = p.fromDatagram(buffer)) == 0 || r == 1)
            taken.append(p);
    }

    QLocalSocket socket;
    QByteArray buffer;
    QList<GX2RpcPacket> taken;
};

// Long enough for the server's event loop to have seen every byte sent.
constexpr int kQuietMs = 150;

class LocalServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        name = QStringLiteral("nasbrolt-test-%1").arg(++counter);
        server.add(&echo);
        ASSERT_TRUE(server.start(name));
    }

    static int counter;
    QString name;
    GX2LocalServer server;
    EchoRouter echo;
};

int LocalServerTest::counter = 0;

} // namespace

TEST_F(LocalServerTest, AnswersInOrderOnePerRequest)
{
    Peer peer(name);
    peer.send(request("echo_seq", 1) + request("echo_seq", 2));
    const QList<GX2RpcPacket> got = peer.answers(2);
    ASSERT_EQ(got.size(), 2);
    EXPECT_EQ(got[0], (QJsonObject{{"err", 0}, {"seq", 1}}));
    EXPECT_EQ(got[1], (QJsonObject{{"err", 0}, {"seq", 2}}));

    peer.send(request("no_such", 3));
    EXPECT_EQ(peer.answers(3).value(2), (QJsonObject{{"err", 9972}}));
    // The unknown command's answer is that code and nothing else on the wire.
    EXPECT_TRUE(peer.raw.endsWith(GX2RpcPacket(QJsonObject{{"err", 9972}}).toDatagram()));
    EXPECT_TRUE(peer.raw.endsWith("\xff\xff\xff{\"err\":9972}"));
}

TEST_F(LocalServerTest, SplitDatagramIsAnsweredOnceWhenComplete)
{
    Peer peer(name);
    const QByteArray bytes = request("echo_seq", 7);
    peer.send(bytes.left(5));
    EXPECT_TRUE(peer.answers(1, kQuietMs).isEmpty());
    peer.send(bytes.mid(5, 10));
    EXPECT_TRUE(peer.answers(1, kQuietMs).isEmpty());
    peer.send(bytes.mid(15));
    EXPECT_EQ(peer.answers(1).size(), 1);
    EXPECT_EQ(peer.answers(2, kQuietMs).size(), 1);
}

TEST_F(LocalServerTest, KeepAliveEndsThePassUntilMoreBytesArrive)
{
    Peer peer(name);
    peer.send(GX2RpcPacket::keepAlive() + request("echo_seq", 1));
    EXPECT_TRUE(peer.answers(1, kQuietMs).isEmpty());
    peer.send(GX2RpcPacket::keepAlive());
    const QList<GX2RpcPacket> got = peer.answers(1);
    ASSERT_EQ(got.size(), 1);
    EXPECT_EQ(got[0].value(QStringLiteral("seq")).toInt(), 1);
}

TEST_F(LocalServerTest, BadBytesSilenceOnlyTheirConnection)
{
    Peer bad(name);
    Peer good(name);
    bad.send("hello there\n");
    EXPECT_TRUE(bad.answers(1, kQuietMs).isEmpty());
    bad.send(request("echo_seq", 1));
    EXPECT_TRUE(bad.answers(1, kQuietMs).isEmpty());

    good.send(request("echo_seq", 2));
    EXPECT_EQ(good.answers(1).size(), 1);

    // A fresh connection from the same client is served again.
    Peer again(name);
    again.send(request("echo_seq", 3));
    EXPECT_EQ(again.answers(1).size(), 1);
}

TEST_F(LocalServerTest, EmptyAnswerTravelsAsKeepAliveBytes)
{
    Peer peer(name);
    peer.send(request("silent", 1));
    const QList<GX2RpcPacket> got = peer.answers(1);
    ASSERT_EQ(got.size(), 1);
    EXPECT_TRUE(got[0].isKeepAlive());
    EXPECT_EQ(peer.raw, GX2RpcPacket::keepAlive());
}

TEST_F(LocalServerTest, ClosedConnectionsLeaveTheList)
{
    {
        Peer peer(name);
        peer.send(request("echo_seq", 1));
        peer.answers(1);
        EXPECT_EQ(server.clientCount(), 1);
    }
    QElapsedTimer timer;
    timer.start();
    while (server.clientCount() > 0 && timer.elapsed() < 2000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_EQ(server.clientCount(), 0);
    EXPECT_TRUE(server.start(name)); // already listening
    server.stop();
    EXPECT_FALSE(server.isListening());
}

TEST(LocalServerStart, StaleSocketFileIsReused)
{
    const QString name = QStringLiteral("nasbrolt-stale");
    const QByteArray path = QFile::encodeName(QDir::tempPath() + QLatin1Char('/') + name);
    // Bind and close without unlinking, as a crashed daemon leaves it.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    ASSERT_LT(size_t(path.size()), sizeof(addr.sun_path));
    memcpy(addr.sun_path, path.constData(), size_t(path.size()));
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ::close(fd);
    ASSERT_TRUE(QFile::exists(QFile::decodeName(path)));

    GX2LocalServer server;
    EchoRouter echo;
    server.add(&echo);
    ASSERT_TRUE(server.start(name));
    EXPECT_TRUE(server.isListening());
    Peer peer(name);
    peer.send(request("echo_seq", 1));
    EXPECT_EQ(peer.answers(1).size(), 1);
}
