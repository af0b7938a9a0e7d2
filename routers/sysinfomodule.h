#pragma once

#include "gx2/gx2todorouter.h"
#include "routers/naslog.h"

// The event log's RPC face (and, later, the live dashboard).
class SysInfoModule : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SysInfoModule(QObject* parent = nullptr);

    NASLog& eventLog() { return naslog; }

private slots:
    void naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    // Appends that arrived in one turn of the event loop are stored together.
    void storeAppends();

    NASLog naslog;
    QList<QJsonObject> appends;
    QList<GX2Deferred> appendAnswers;
};
