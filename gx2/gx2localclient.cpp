#include "gx2/gx2localclient.h"

#include "gx2/gx2localserver.h"
#include "gx2/gx2rpcpacket.h"

#include <QLocalSocket>

GX2LocalClient::GX2LocalClient(GX2LocalServer* owner, QLocalSocket* socket)
    : QObject(owner), owner(owner), socket(socket)
{
}

void GX2LocalClient::initialize()
{
    connect(socket, &QLocalSocket::disconnected, this, &GX2LocalClient::onDisconnected);
    connect(socket, &QLocalSocket::readyRead, this, &GX2LocalClient::onReceived);
}

void GX2LocalClient::onReceived()
{
    buffer += socket->readAll();
    GX2RpcPacket request;
    // A keep-alive ends the pass, and a bad datagram is never consumed: the
    // connection then stays silent until the peer goes away.
    while (request.fromDatagram(buffer) == GX2RpcPacket::Taken) {
        if (request.isEmpty())
            continue;
        GX2RpcPacket response;
        owner->doSlot(response, request);
        socket->write(response.toDatagram());
        socket->flush();
    }
}

void GX2LocalClient::onDisconnected()
{
    owner->clientClosed(this);
    socket->deleteLater();
}
