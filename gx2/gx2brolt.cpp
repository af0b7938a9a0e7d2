#include "gx2/gx2brolt.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2localserver.h"
#include "gx2/gx2rpcpacket.h"
#include "gx2/gx2syspath.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>

namespace {

constexpr int kReadPollMs = 25;

// The request with "params" made an object; timeout > 0 also goes into it.
QJsonObject normalised(const QJsonObject& request, int timeout)
{
    QJsonObject copy = request;
    QJsonObject params = copy.value(QStringLiteral("params")).toObject();
    if (timeout > 0)
        params.insert(QStringLiteral("timeout"), timeout);
    copy.insert(QStringLiteral("params"), params);
    return copy;
}

// flush() sends only what the kernel takes at once; without an event loop the
// rest would be lost when the socket closes, so wait for it here.
void send(QLocalSocket& socket, const QJsonObject& request, int waitMs)
{
    socket.write(GX2RpcPacket(request).toDatagram());
    socket.flush();
    while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(waitMs)) {
    }
}

// Takes the first non-empty packet from buffer into result. A keep-alive or an
// incomplete or bad datagram ends the pass; bad bytes stay, so no answer comes.
bool takeAnswer(QJsonObject& result, QByteArray& buffer)
{
    GX2RpcPacket packet;
    while (packet.fromDatagram(buffer) == GX2RpcPacket::Taken) {
        if (packet.isKeepAlive())
            continue;
        result = static_cast<const QJsonObject&>(packet);
        return true;
    }
    return false;
}

void awaitAnswer(QJsonObject& result, QLocalSocket& socket, const QElapsedTimer& timer, int limit)
{
    QByteArray buffer;
    while (timer.elapsed() < limit) {
        socket.waitForReadyRead(kReadPollMs);
        buffer += socket.readAll();
        if (takeAnswer(result, buffer))
            return;
        // A closed peer sends nothing more; the answer stays "no answer".
        if (socket.state() == QLocalSocket::UnconnectedState)
            return;
    }
}

} // namespace

int broltRequest(QJsonObject& result, const QJsonObject& request, int timeout)
{
    result.insert(QStringLiteral("err"), kErrNoAnswer);
    QLocalSocket socket;
    socket.connectToServer(QString::fromLatin1(kBroltSocketName), QIODevice::ReadWrite);
    const int limit = timeout > 0 ? timeout : kBroltDefaultTimeoutMs;
    QElapsedTimer timer;
    timer.start();
    const QJsonObject sent = normalised(request, limit);
    if (socket.waitForConnected(limit)) {
        send(socket, sent, int(qMax<qint64>(1, limit - timer.elapsed())));
        awaitAnswer(result, socket, timer, limit);
    }
    socket.disconnectFromServer();
    return result.value(QStringLiteral("err")).toInt();
}

bool broltNotice(const QJsonObject& request)
{
    const QJsonObject sent = normalised(request, 0);
    QLocalSocket socket;
    socket.connectToServer(QString::fromLatin1(kBroltSocketName), QIODevice::ReadWrite);
    if (!socket.waitForConnected(kBroltNoticeConnectMs))
        return false;
    send(socket, sent, kBroltNoticeConnectMs);
    socket.disconnectFromServer();
    return true;
}

bool naslogAdd(const QString& level, const QString& username, const QString& ipaddr,
               const QString& description, const QString& appname, const QString& devicename)
{
    const QJsonObject params{
        {QStringLiteral("level"), level},     {QStringLiteral("username"), username},
        {QStringLiteral("ipaddr"), ipaddr},   {QStringLiteral("description"), description},
        {QStringLiteral("appname"), appname}, {QStringLiteral("devicename"), devicename},
    };
    const QJsonObject request{{QStringLiteral("cmd"), QStringLiteral("naslog_append")},
                              {QStringLiteral("params"), params}};
    QJsonObject result;
    return broltRequest(result, request, kNaslogTimeoutMs) == kErrOk;
}

void addLog(const QString& text)
{
    QFile file(sysPath(QStringLiteral("/tmp/quillo.debug.log")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    // The hour in the month's place is deliberate, not a typo: the trace keeps
    // the stamp it has always had.
    const QString stamp =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-HH-dd HH:mm:ss.zzz "));
    file.write((stamp + text + QLatin1Char('\n')).toUtf8());
    file.flush();
}
