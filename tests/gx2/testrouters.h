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
