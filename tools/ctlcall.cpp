#include "tools/ctlcall.h"

#include "tools/ctlcodes.h"
#include "tools/ctlargs.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalSocket>

#include <cmath>

namespace {

// Beyond any code; also keeps the conversion to int defined.
constexpr double kMaxCode = 1e9;

CtlReply failed(CtlReply::Outcome outcome, const QString& detail)
{
    CtlReply reply;
    reply.outcome = outcome;
    reply.detail = detail;
    return reply;
}

int remainingMs(const QDeadlineTimer& deadline)
{
    return int(qMax<qint64>(0, deadline.remainingTime()));
}

CtlReply connectFailed(const QLocalSocket& socket)
{
    switch (socket.error()) {
    case QLocalSocket::ServerNotFoundError:
        return failed(CtlReply::Outcome::NoDaemon, QStringLiteral("no such socket"));
    case QLocalSocket::ConnectionRefusedError:
        return failed(CtlReply::Outcome::NoDaemon, QStringLiteral("connection refused"));
    case QLocalSocket::SocketAccessError:
        return failed(CtlReply::Outcome::NoDaemon, QStringLiteral("permission denied"));
    case QLocalSocket::SocketTimeoutError:
        // The socket exists but its queue of pending connections stays full.
        return failed(CtlReply::Outcome::NoAnswer,
                      QStringLiteral("connection not accepted in time"));
    default:
        return failed(CtlReply::Outcome::NoDaemon, socket.errorString());
    }
}

bool sendAll(QLocalSocket& socket, const QByteArray& bytes, const QDeadlineTimer& deadline)
{
    socket.write(bytes);
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(remainingMs(deadline)))
            return false;
    }
    return true;
}

QString lostConnection(const QLocalSocket& socket, int timeoutMs)
{
    if (socket.state() == QLocalSocket::ConnectedState)
        return QStringLiteral("no answer within %1 ms").arg(timeoutMs);
    return QStringLiteral("the connection closed before an answer");
}

// One JSON value as compact text; documents hold only objects and arrays.
QString jsonText(const QJsonValue& value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QByteArray answerText(const QJsonObject& response, bool raw)
{
    // Qt prints an empty object on two lines; {} reads better.
    if (response.isEmpty())
        return QByteArrayLiteral("{}\n");
    if (raw)
        return QJsonDocument(response).toJson(QJsonDocument::Compact) + '\n';
    return QJsonDocument(response).toJson(QJsonDocument::Indented);
}

} // namespace

CtlReply ctlCall(const QString& socketPath, const GX2RpcPacket& request, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(remainingMs(deadline)))
        return connectFailed(socket);
    if (!sendAll(socket, request.toDatagram(), deadline))
        return failed(CtlReply::Outcome::NoAnswer, lostConnection(socket, timeoutMs));
    QByteArray buffer;
    GX2RpcPacket answer;
    for (;;) {
        buffer += socket.readAll();
        const int parsed = answer.fromDatagram(buffer);
        if (parsed == GX2RpcPacket::Taken || parsed == GX2RpcPacket::KeepAlive) {
            CtlReply reply;
            reply.outcome = CtlReply::Outcome::Answered;
            reply.response = answer;
            reply.command = request.value(QStringLiteral("cmd")).toString();
            return reply;
        }
        if (parsed == GX2RpcPacket::NotDatagram)
            return failed(CtlReply::Outcome::NoAnswer,
                          QStringLiteral("the answer is not a datagram"));
        if (!socket.waitForReadyRead(remainingMs(deadline)) && socket.bytesAvailable() == 0)
            return failed(CtlReply::Outcome::NoAnswer, lostConnection(socket, timeoutMs));
    }
}

CtlOutput ctlRender(const CtlReply& reply, const QString& socketPath, bool raw)
{
    CtlOutput output;
    const QByteArray prefix = QByteArrayLiteral("nasbroltctl: ");
    if (reply.outcome == CtlReply::Outcome::NoDaemon) {
        output.status = kCtlExitNoDaemon;
        output.err = prefix + QStringLiteral("cannot connect to nasbrolt at %1 (%2): "
                                             "is the daemon running?\n")
                                  .arg(socketPath, reply.detail)
                                  .toUtf8();
        return output;
    }
    if (reply.outcome == CtlReply::Outcome::NoAnswer) {
        output.status = kCtlExitNoAnswer;
        output.err = prefix + QStringLiteral("no answer from nasbrolt at %1: %2\n")
                                  .arg(socketPath, reply.detail)
                                  .toUtf8();
        return output;
    }
    output.out = answerText(reply.response, raw);
    // Only a numeric 0 or no "err" at all is success; anything odd is reported.
    const QJsonValue err = reply.response.value(QStringLiteral("err"));
    if (err.isUndefined() || (err.isDouble() && err.toDouble() == 0))
        return output;
    output.status = kCtlExitFailed;
    QString text = QStringLiteral("error ") + jsonText(err);
    const QString meaning = ctlErrMeaning(err, reply.command);
    if (!meaning.isEmpty())
        text += QStringLiteral(": ") + meaning;
    const QJsonValue errmsg = reply.response.value(QStringLiteral("errmsg"));
    if (errmsg.isString())
        text += QStringLiteral(": ") + errmsg.toString();
    output.err = prefix + text.toUtf8() + '\n';
    return output;
}

QByteArray ctlCodesText()
{
    const QList<CtlCode> table = codeTable();
    int width = 0;
    for (const CtlCode& c : table)
        width = qMax(width, int(qstrlen(c.scope)));
    QByteArray text;
    for (const CtlCode& c : table)
        text += QStringLiteral("%1  %2  %3\n")
                    .arg(c.code, -5)
                    .arg(QLatin1String(c.scope), -width)
                    .arg(QString::fromUtf8(c.meaning))
                    .toUtf8();
    return text;
}

// Only a whole number can be a code; anything else has no meaning to show.
QString ctlErrMeaning(const QJsonValue& err, const QString& command)
{
    if (!err.isDouble())
        return QString();
    const double code = err.toDouble();
    if (std::trunc(code) != code || std::fabs(code) > kMaxCode)
        return QString();
    return codeMeaning(int(code), command);
}
