#pragma once

#include "gx2/gx2todorouter.h"

// Small routers that the dispatch and server tests register.

class EchoRouter : public GX2TodoRouter
{
    Q_OBJECT

public slots:
    void notACommand() {}

private slots:
    void echo_seq(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        retObject->insert("err", 0);
        retObject->insert("seq", cmdObject.value("seq"));
    }

    void silent(GX2RpcPacket*, GX2RpcPacket) {}

    // Answered later, when the test says so.
    void echo_later(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        held.append({retObject->answerLater(), cmdObject.value("seq")});
    }

public:
    // Answers the oldest request still held.
    void release()
    {
        const auto [answer, seq] = held.takeFirst();
        answer.answer(QJsonObject{{"err", 0}, {"seq", seq}});
    }
    QList<QPair<GX2Deferred, QJsonValue>> held;
};

// Answers "who" with its name.
class NamedRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit NamedRouter(const char* name) { setObjectName(name); }

private slots:
    void who(GX2RpcPacket* retObject, GX2RpcPacket) { retObject->insert("router", objectName()); }
};
