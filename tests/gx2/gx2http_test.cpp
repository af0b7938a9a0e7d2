#include "gx2/gx2http.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

#include "tests/support/offloop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// HTTP on 127.0.0.1, served by this thread's event loop: keeps every whole
// request and answers each with `body` after `delayMs`, unless silent.
class TinyHttp : public QObject
{
public:
    TinyHttp()
    {
        server.listen(QHostAddress::LocalHost, 0);
        connect(&server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = server.nextPendingConnection())
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { take(socket); });
        });
    }
    QString url(const char* path = "/") const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(server.serverPort()).arg(path);
    }

    QByteArray body;
    int delayMs = 0;
    bool silent = false;
    QList<QByteArray> requests;

private:
    void take(QTcpSocket* socket)
    {
        static const QRegularExpression length(QStringLiteral("Content-Length: (\\d+)"));
        QByteArray& raw = pending[socket];
        raw += socket->readAll();
        const int end = raw.indexOf("\r\n\r\n");
        const QRegularExpressionMatch m = length.match(QString::fromLatin1(raw.left(end)));
        if (end < 0 || raw.size() < end + 4 + m.captured(1).toInt() || silent)
            return;
        requests << raw;
        QTimer::singleShot(delayMs, socket, [this, socket] {
            socket->write("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                          QByteArray::number(body.size()) + "\r\n\r\n" + body);
            socket->disconnectFromHost();
        });
    }

    QTcpServer server;
    QHash<QTcpSocket*, QByteArray> pending;
};

class HttpTest : public ::testing::Test
{
protected:
    // A proxy from the environment must not take loopback traffic elsewhere.
    void SetUp() override { qputenv("no_proxy", "127.0.0.1"); }

    TinyHttp http;
    QByteArray body;
};

} // namespace

TEST_F(HttpTest, GetTakesTheBodyAndDropsAStrayHeaderBlock)
{
    http.body = "hello";
    EXPECT_TRUE(offLoop([&] { return httpGet(body, http.url("/a?b=1"), 5); }));
    EXPECT_EQ(body, "hello");
    EXPECT_TRUE(http.requests.value(0).startsWith("GET /a?b=1 HTTP/1.1\r\n"));

    http.body = "X: y\r\n\r\nreal body";
    body.clear();
    EXPECT_TRUE(offLoop([&] { return curlHttpGet(body, http.url(), 5); }));
    EXPECT_EQ(body, "real body");

    // Only a block with something before it is a header block.
    http.body = "\r\n\r\nkept";
    body.clear();
    EXPECT_TRUE(offLoop([&] { return httpGet(body, http.url(), 5); }));
    EXPECT_EQ(body, "\r\n\r\nkept");
}

TEST_F(HttpTest, GetLimitIsInSeconds)
{
    http.body = "late";
    http.delayMs = 300;
    EXPECT_TRUE(offLoop([&] { return httpGet(body, http.url(), 5); }));
    EXPECT_EQ(body, "late");
    http.silent = true;
    EXPECT_FALSE(offLoop([&] { return httpGet(body, http.url(), 1); }));
}

TEST_F(HttpTest, PostSendsCompactJsonAndTakesAnObjectAnswer)
{
    QJsonObject answer;
    http.body = R"({"err":0,"v":[1,2]})";
    const QJsonObject request{{"a", 1}, {"b", "x y"}};
    EXPECT_TRUE(offLoop([&] { return httpPost(answer, http.url("/api"), request); }));
    EXPECT_EQ(answer, (QJsonObject{{"err", 0}, {"v", QJsonArray{1, 2}}}));
    const QByteArray sent = http.requests.value(0);
    EXPECT_TRUE(sent.startsWith("POST /api HTTP/1.1\r\n"));
    EXPECT_TRUE(sent.contains("\r\nContent-Type:application/json\r\n"));
    EXPECT_TRUE(sent.endsWith("\r\n\r\n{\"a\":1,\"b\":\"x y\"}"));

    // Anything but an object leaves the answer alone.
    http.body = "[1]";
    EXPECT_TRUE(offLoop([&] { return curlHttpPost(answer, http.url(), request); }));
    EXPECT_EQ(answer.value("err"), 0);
}

TEST(HttpClosedPortTest, EveryCallFails)
{
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const QString url = QStringLiteral("http://127.0.0.1:%1/").arg(probe.serverPort());
    probe.close();
    QByteArray body;
    QJsonObject answer;
    QTemporaryDir dir;
    EXPECT_FALSE(httpGet(body, url, 5));
    EXPECT_FALSE(curlHttpPost(answer, url, {{"a", 1}}));
    EXPECT_FALSE(curlHttpDownload(url, dir.filePath("f")));
}

TEST_F(HttpTest, DownloadWritesTheFileAndDetachedGetIsSent)
{
    QTemporaryDir dir;
    http.body = QByteArray("\0\x01\xff\r\n\r\nbinary", 12).repeated(3000);
    EXPECT_TRUE(offLoop([&] { return curlHttpDownload(http.url(), dir.filePath("blob")); }));
    QFile file(dir.filePath("blob"));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly) && file.readAll() == http.body);

    curlHttpGet(http.url("/ping"), 5);
    QElapsedTimer timer;
    for (timer.start(); http.requests.size() < 2 && timer.elapsed() < 5000;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    EXPECT_TRUE(http.requests.value(1).startsWith("GET /ping "));
}
