#include "gx2/gx2localserver.h"

#include "gx2/gx2localclient.h"
#include "gx2/gx2logger.h"

#include <QFile>

#include <cerrno>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace {

constexpr int kMaxPending = 1024;

gid_t groupIdOf(const QString& name)
{
    std::vector<char> scratch(16384);
    group entry{};
    group* found = nullptr;
    const QByteArray n = name.toLocal8Bit();
    if (getgrnam_r(n.constData(), &entry, scratch.data(), scratch.size(), &found) != 0 || !found)
        return gid_t(-1);
    return found->gr_gid;
}

} // namespace

GX2LocalServer::GX2LocalServer(QObject* parent) : GX2TodoRouter(parent)
{
    server.setMaxPendingConnections(kMaxPending);
    connect(&server, &GX2LocalListener::accepted, this, &GX2LocalServer::onConnection);
}

GX2LocalServer::~GX2LocalServer()
{
    stop();
    const QList<GX2LocalClient*> open = clients;
    clients.clear();
    qDeleteAll(open);
}

void GX2LocalServer::setAccessGroup(const QString& name)
{
    group = name.isEmpty() ? QLatin1String(kDefaultAccessGroup) : name;
}

bool GX2LocalServer::start(const QString& socketName)
{
    if (server.isListening())
        return true;
    // Made under a private name and renamed into place, so the socket is
    // never open wider than this for a moment.
    server.setSocketOptions(worldAccess() ? QLocalServer::WorldAccessOption
                                          : QLocalServer::UserAccessOption);
    if (!server.listen(socketName)) {
        if (server.serverError() != QAbstractSocket::AddressInUseError)
            return true; // kept lenient: callers treat the service as started
        // A stale socket file from an earlier run.
        QLocalServer::removeServer(socketName);
        if (!server.listen(socketName))
            return false;
    }
    name = socketName;
    guardSocketFile();
    return true;
}

void GX2LocalServer::guardSocketFile()
{
    if (worldAccess())
        return;
    const QByteArray path = QFile::encodeName(server.fullServerName());
    groupId = groupIdOf(group);
    if (groupId == gid_t(-1)) {
        ::chmod(path.constData(), 0600);
        GX2LOG_WARN(
            QStringLiteral("socket group %1 does not exist: only root may connect").arg(group));
        return;
    }
    // Until here only the owner could connect; the group comes in last.
    ::chmod(path.constData(), 0660);
    const uid_t owner = ::geteuid() == 0 ? 0 : uid_t(-1);
    if (::chown(path.constData(), owner, groupId) != 0)
        GX2LOG_WARN(QStringLiteral("cannot give the socket to group %1").arg(group));
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

bool GX2LocalServer::admits(const GX2Peer& peer, gid_t groupId, uid_t self)
{
    if (peer.uid == 0 || peer.uid == self)
        return true;
    if (groupId == gid_t(-1))
        return false;
    return peer.gid == groupId || peer.groups.contains(groupId);
}

GX2Peer GX2LocalServer::peerOf(int descriptor)
{
    GX2Peer peer;
    ucred cred{};
    socklen_t size = sizeof cred;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &cred, &size) == 0) {
        peer.uid = cred.uid;
        peer.gid = cred.gid;
        peer.pid = cred.pid;
    }
    std::vector<gid_t> groups(64);
    size = socklen_t(groups.size() * sizeof(gid_t));
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0 &&
        errno == ERANGE) {
        groups.resize(size / sizeof(gid_t));
        ::getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    }
    for (size_t i = 0; i < size / sizeof(gid_t) && i < groups.size(); ++i)
        peer.groups.append(groups[i]);
    return peer;
}

void GX2LocalServer::onConnection(qintptr descriptor)
{
    const int fd = int(descriptor);
    const GX2Peer peer = peerOf(fd);
    if (!worldAccess() && !admits(peer, groupId, ::geteuid())) {
        GX2LOG_WARN(QStringLiteral("refused a connection of uid %1 pid %2: not root and not in %3")
                        .arg(peer.uid)
                        .arg(peer.pid)
                        .arg(group));
        ::close(fd);
        return;
    }
    auto* client = new GX2LocalClient(this, fd, peer);
    clients.append(client);
    client->initialize();
}
