#pragma once

#include "gx2/gx2rpcpacket.h"

#include <QHash>
#include <QList>
#include <QObject>

#include <mutex>

// Base of every command router. A command is a private slot
//     void name(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
// found by the request's "cmd"; routers form a tree searched depth-first in
// the order they were added.
class GX2TodoRouter : public QObject
{
    Q_OBJECT

public:
    explicit GX2TodoRouter(QObject* parent = nullptr);
    ~GX2TodoRouter() override;

    void add(GX2TodoRouter* child);
    void del(GX2TodoRouter* child);

    // True when a slot ran. Otherwise retObject["err"] is the unknown-command code.
    virtual bool doSlot(GX2RpcPacket& retObject, const GX2RpcPacket& cmdObject);

private:
    Q_DISABLE_COPY(GX2TodoRouter)

    // The method index of the command slot named name, -1 when there is none.
    int slotIndex(const QString& name);

    std::mutex lock;
    QList<GX2TodoRouter*> children; // not owned
    // Slot look-ups by name, remembered: a class's methods never change.
    std::mutex slotsLock;
    QHash<QString, int> slotIndexes;
};
