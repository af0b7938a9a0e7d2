#pragma once

#include "gx2/gx2deferred.h"
#include "gx2/gx2localserver.h"

#include <QByteArray>
#include <QObject>

class QSocketNotifier;
class GX2RpcPacket;

// One accepted connection: cuts datagrams from its byte stream, dispatches
// each request through the server's router tree and answers in order. It
// reads and writes the descriptor itself; a request that announces, or a
// stream that piles up, more than the server's limit closes the connection.
class GX2LocalClient : public QObject
{
    Q_OBJECT

public:
    GX2LocalClient(GX2LocalServer* owner, int descriptor, const GX2Peer& peer);
    ~GX2LocalClient() override;

    void initialize();
    const GX2Peer& peer() const { return who; }

private slots:
    void onReceived();
    void onDisconnected();
    void onWritable();

private:
    Q_DISABLE_COPY(GX2LocalClient)

    void serve();
    void send(const QByteArray& datagram);
    void answered(const GX2RpcPacket& response);
    bool headTooLarge() const;
    void drop(const QString& why);

    GX2LocalServer* owner;
    int fd;
    GX2Peer who;
    QSocketNotifier* reader = nullptr;
    QSocketNotifier* writer = nullptr;
    QByteArray buffer;   // received, not yet taken as datagrams
    QByteArray unsent;   // answers the kernel did not take yet
    GX2Deferred waiting; // the answer this connection waits for
    bool closed = false;
    bool trimAfter = false; // a large answer went out in this pass
};
