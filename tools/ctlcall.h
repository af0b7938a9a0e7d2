#pragma once

#include "gx2/gx2rpcpacket.h"

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// How one request to the daemon ended.
struct CtlReply
{
    enum class Outcome {
        Answered, // response holds the answer
        NoDaemon, // nothing accepted the connection
        NoAnswer, // connected, but no answer in time or the connection broke
    };

    Outcome outcome = Outcome::NoAnswer;
    QJsonObject response;
    QString detail;  // why there is no answer, for people
    QString command; // the request's "cmd", which tells what its "err" means
};

// Sends request on a fresh connection to socketPath and waits for its answer,
// at most timeoutMs in all. The first datagram back is the answer: the daemon
// answers each request once and sends nothing unasked, and it frames an
// empty answer as a bare keep-alive, which therefore reads as {}.
CtlReply ctlCall(const QString& socketPath, const GX2RpcPacket& request, int timeoutMs);

// What nasbroltctl prints for a reply, and its exit status.
struct CtlOutput
{
    QByteArray out;
    QByteArray err;
    int status = 0;
};

// A non-zero "err" goes to stderr with its meaning and the answer's "errmsg".
CtlOutput ctlRender(const CtlReply& reply, const QString& socketPath, bool raw);

// "nasbroltctl codes": every result code with its scope and meaning, one a line.
QByteArray ctlCodesText();

// The meaning of an answer's "err" for command; empty when it is no known code.
QString ctlErrMeaning(const QJsonValue& err, const QString& command);
