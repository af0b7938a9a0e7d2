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
    // Stores the appends waiting for their turn of the loop (also at quit):
    // the appends of one turn go into one transaction.
    void storeAppends();

private slots:
    void naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    NASLog naslog;
    QList<QJsonObject> appends;
    QList<GX2Deferred> appendAnswers;
};
