#pragma once

#include "gx2/gx2todorouter.h"

#include <QList>
#include <QLocalServer>

class GX2LocalClient;

// The name the daemon listens on; without a slash it lives in the temp directory.
constexpr char kBroltSocketName[] = "QUILLO_BROLT_TELMAR_ORVO";

// The daemon's only command interface: a world-accessible local socket. The
// server is also the root of the router tree.
class GX2LocalServer : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit GX2LocalServer(QObject* parent = nullptr);
    ~GX2LocalServer() override;

    bool start(const QString& name);
    void stop();
    bool isListening() const;
    QString errorString() const { return server.errorString(); }
    QString serverName() const { return name; }

    void clientClosed(GX2LocalClient* client);
    int clientCount() const { return clients.size(); }

private slots:
    void onConnection();

private:
    Q_DISABLE_COPY(GX2LocalServer)

    QLocalServer server;
    QString name;
    QList<GX2LocalClient*> clients;
};
