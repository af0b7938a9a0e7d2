#pragma once

#include "gx2/gx2locallistener.h"
#include "gx2/gx2todorouter.h"

#include <QList>
#include <QString>

#include <sys/types.h>

class GX2LocalClient;

// The name the daemon listens on; without a slash it lives in the temp directory.
constexpr char kBroltSocketName[] = "QUILLO_BROLT_TELMAR_ORVO";

// Who is at the other end of a connection, as the kernel tells it.
struct GX2Peer
{
    uid_t uid = uid_t(-1);
    gid_t gid = gid_t(-1);
    pid_t pid = 0;
    QList<gid_t> groups; // supplementary groups
};

// The daemon's only command interface: a local socket open to root and to
// one group (the web front end's), checked again on every connection. The
// server is also the root of the router tree.
class GX2LocalServer : public GX2TodoRouter
{
    Q_OBJECT

public:
    static constexpr qint64 kDefaultMaxRequest = 64LL * 1024 * 1024;
    static constexpr char kWorldAccess[] = "*";
    static constexpr char kDefaultAccessGroup[] = "www-data";

    explicit GX2LocalServer(QObject* parent = nullptr);
    ~GX2LocalServer() override;

    // Who may connect: root, this process's own user and the members of
    // group; "*" lets everyone in. Set before start().
    void setAccessGroup(const QString& group);
    QString accessGroup() const { return group; }
    // A connection announcing or piling up more bytes than this is closed.
    void setMaxRequest(qint64 bytes) { maxRequest = bytes; }
    qint64 maxRequestBytes() const { return maxRequest; }

    bool start(const QString& name);
    void stop();
    bool isListening() const;
    QString errorString() const { return server.errorString(); }
    QString serverName() const { return name; }

    void clientClosed(GX2LocalClient* client);
    int clientCount() const { return clients.size(); }

    // Whether peer may send commands when the socket belongs to groupId.
    static bool admits(const GX2Peer& peer, gid_t groupId, uid_t self);
    static GX2Peer peerOf(int descriptor);

private slots:
    void onConnection(qintptr descriptor);

private:
    Q_DISABLE_COPY(GX2LocalServer)

    bool worldAccess() const { return group == QLatin1String(kWorldAccess); }
    void guardSocketFile();

    GX2LocalListener server;
    QString name;
    QList<GX2LocalClient*> clients;
    QString group = QLatin1String(kDefaultAccessGroup);
    gid_t groupId = gid_t(-1); // -1: unknown group, root and self only
    qint64 maxRequest = kDefaultMaxRequest;
};
