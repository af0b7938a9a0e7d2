#pragma once

#include "gx2/gx2todorouter.h"

// Small routers that the dispatch and server tests register.

class EchoRouter : public GX2TodoRouter
{
    Q_OBJECT

public slots:
    void notACommand() {}

private slots:
    void echo_params(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        retObject->insert(QStringLiteral("err"), 0);
        retObject->insert(QStringLiteral("results"), cmdObject.value(QStringLiteral("params")));
    }

    void echo_seq(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
    {
        retObject->insert(QStringLiteral("err"), 0);
        retObject->insert(QStringLiteral("seq"), cmdObject.value(QStringLiteral("seq")));
    }

    void silent(GX2RpcPacket*, GX2RpcPacket) {}
};

class NamedRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit NamedRouter(const QString& name) : name(name) {}

private slots:
    void who(GX2RpcPacket* retObject, GX2RpcPacket)
    {
        retObject->insert(QStringLiteral("seen_err"), retObject->value(QStringLiteral("err")));
        retObject->insert(QStringLiteral("err"), 0);
        retObject->insert(QStringLiteral("router"), name);
    }

private:
    QString name;
};

class CountingRouter : public GX2TodoRouter
{
    Q_OBJECT

public:
    int calls = 0;

private slots:
    void count(GX2RpcPacket* retObject, GX2RpcPacket)
    {
        ++calls;
        retObject->insert(QStringLiteral("err"), 0);
        retObject->insert(QStringLiteral("calls"), calls);
    }
};
