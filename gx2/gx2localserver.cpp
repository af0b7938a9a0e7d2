#include "gx2/gx2localserver.h"

#include "gx2/gx2localclient.h"

#include <QLocalSocket>

namespace {
constexpr int kMaxPending = 1024;
}

GX2LocalServer::GX2LocalServer(QObject* parent) : GX2TodoRouter(parent)
{
    server.setMaxPendingConnections(kMaxPending);
    server.setSocketOptions(QLocalServer::WorldAccessOption);
    connect(&server, &QLocalServer::newConnection, this, &GX2LocalServer::onConnection);
}

GX2LocalServer::~GX2LocalServer()
{
    stop();
    // Clients go before the listening socket: its destructor closes their
    // sockets, whose "disconnected" must not reach a half-destroyed server.
    const QList<GX2LocalClient*> open = clients;
    clients.clear();
    qDeleteAll(open);
}

bool GX2LocalServer::start(const QString& socketName)
{
    if (server.isListening())
        return true;
    if (!server.listen(socketName)) {
        if (server.serverError() != QAbstractSocket::AddressInUseError)
            return true; // kept lenient: callers treat the service as started
        // A stale socket file from an earlier run.
        QLocalServer::removeServer(socketName);
        if (!server.listen(socketName))
            return false;
    }
    name = socketName;
    return true;
}

void GX2LocalServer::stop()
{
    if (server.isListening())
        server.close();
}

bool GX2LocalServer::isListening() const
{
    return server.isListening();
}

void GX2LocalServer::clientClosed(GX2LocalClient* client)
{
    clients.removeOne(client);
    client->deleteLater();
}

void GX2LocalServer::onConnection()
{
    while (QLocalSocket* socket = server.nextPendingConnection()) {
        auto* client = new GX2LocalClient(this, socket);
        clients.append(client);
        client->initialize();
    }
}
