#include "bench/benchsupport.h"

#include "gx2/gx2localserver.h"
#include "gx2/gx2rpcpacket.h"
#include "lnx2/lnx2process.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const char kSudo[] = R"sh(#!/bin/sh
here="$(dirname "$0")"
if [ "$1" = df ]; then
    echo "Filesystem     1K-blocks    Used Available Use% Mounted on"
    echo "/dev/vda1       10000000 5000000   5000000  50% /"
    exit 0
fi
tool="$here/$(basename "$1")"
if [ -x "$tool" ] && [ "$tool" != "$0" ]; then
    shift
    exec "$tool" "$@"
fi
exec "$@"
)sh";

const char kSystemctl[] = "#!/bin/sh\nexit 0\n";

bool writeScript(const QString& path, const char* text)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) < 0)
        return false;
    f.close();
    return f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

qint64 monotonicUs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return qint64(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

int connectUnix(const QString& path, bool nonBlocking)
{
    const int fd =
        ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (nonBlocking ? SOCK_NONBLOCK : 0), 0);
    if (fd < 0)
        return -1;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    std::strncpy(addr.sun_path, name.constData(), sizeof addr.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 &&
        errno != EINPROGRESS) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Length of the whole datagram at the front of buf, 0 while incomplete.
size_t datagramLength(const QByteArray& buf)
{
    if (buf.startsWith(PACKET_KEEPALIVE))
        return size_t(PACKET_KEEPALIVE.size());
    const quint64 total = GX2RpcPacket::announcedSize(buf);
    return total > 0 && quint64(buf.size()) >= total ? size_t(total) : 0;
}

bool answerOk(const QByteArray& datagram)
{
    const QByteArray json = datagram.mid(GX2RpcPacket::kHeaderSize);
    return json.contains("\"err\":0,") || json.contains("\"err\":0}");
}

struct Connection
{
    int fd = -1;
    QByteArray in;
    qint64 sentAt = 0;
    qint64 n = 0;
};

} // namespace

BenchSandbox::BenchSandbox(const char* name, bool keep)
    : dir(QDir::tempPath() + QLatin1Char('/') + QLatin1String(name) + QStringLiteral("-XXXXXX"))
{
    dir.setAutoRemove(!keep);
    if (!dir.isValid())
        return;
    ready = true;
    for (const char* d : {"root/etc", "tmp", "tools"})
        ready = ready && QDir(dir.path()).mkpath(QString::fromLatin1(d));
    ready = ready && writeScript(path(QStringLiteral("tools/sudo")), kSudo) &&
            writeScript(path(QStringLiteral("tools/systemctl")), kSystemctl);
}

QString BenchSandbox::path(const QString& relative) const
{
    return relative.isEmpty() ? dir.path() : dir.filePath(relative);
}

QString BenchSandbox::socketPath() const
{
    return path(QStringLiteral("tmp/")) + QLatin1String(kBroltSocketName);
}

QString benchDaemonPath()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../nasbrolt");
}

bool BenchDaemon::start(const QString& program, bool realTools, double* startMs)
{
    LNX2ProcRequest r;
    r.mode = LNX2ProcMode::Spawn;
    r.program = program;
    r.envRule = LNX2EnvRule::Set;
    r.env = {{QStringLiteral("NASBROLT_ROOT"), box.path(QStringLiteral("root"))},
             {QStringLiteral("TMPDIR"), box.path(QStringLiteral("tmp"))}};
    if (!realTools)
        r.env.insert(QStringLiteral("NASBROLT_TOOLS"), box.path(QStringLiteral("tools")));
    r.outputPath = box.path(QStringLiteral("daemon.out"));
    const qint64 began = monotonicUs();
    const LNX2ProcResult started = procRun(r);
    if (!started.started)
        return false;
    pid = started.pid;
    while (monotonicUs() - began < 20000000) {
        const int fd = connectUnix(box.socketPath(), false);
        if (fd >= 0) {
            ::close(fd);
            if (startMs)
                *startMs = double(monotonicUs() - began) / 1000.0;
            return connect();
        }
        if (procWait(pid, 0)) {
            pid = 0;
            return false;
        }
        ::usleep(500);
    }
    return false;
}

int BenchDaemon::stop()
{
    if (pid <= 0)
        return 0;
    socket.abort();
    ::kill(pid_t(pid), SIGTERM);
    int status = 0;
    if (!procWait(pid, 20000, &status)) {
        std::printf("daemon ignored SIGTERM for 20 s, killing pid %lld\n", pid);
        ::kill(pid_t(pid), SIGKILL);
        procWait(pid, -1, &status);
        pid = 0;
        return -1;
    }
    pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool BenchDaemon::connect()
{
    socket.abort();
    buffer.clear();
    socket.connectToServer(box.socketPath());
    return socket.waitForConnected(2000);
}

QJsonObject BenchDaemon::request(const QString& cmd, const QJsonObject& params, int limitMs)
{
    if (socket.state() != QLocalSocket::ConnectedState && !connect())
        return {};
    socket.write(GX2RpcPacket::make(cmd, 0, params).toDatagram());
    socket.flush();
    QElapsedTimer t;
    t.start();
    GX2RpcPacket answer;
    while (answer.fromDatagram(buffer) != GX2RpcPacket::Taken) {
        const int left = limitMs - int(t.elapsed());
        if (left <= 0 || !socket.waitForReadyRead(left)) {
            socket.abort();
            buffer.clear();
            return {};
        }
        buffer += socket.readAll();
    }
    return answer;
}

qint64 procStatusKb(qint64 pid, const char* key)
{
    QFile f(QStringLiteral("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray prefix = QByteArray(key) + ':';
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

qint64 percentile(std::vector<qint64>& values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

LoadFigures closedLoop(const QString& socketPath, int connections, double seconds,
                       const std::function<QByteArray(int, qint64)>& request, qint64 limit)
{
    LoadFigures f;
    std::vector<Connection> conns{size_t(connections)};
    std::vector<qint64> latencies;
    latencies.reserve(1 << 20);
    const int ep = epoll_create1(EPOLL_CLOEXEC);
    for (int i = 0; i < connections; ++i) {
        Connection& c = conns[size_t(i)];
        c.fd = connectUnix(socketPath, false);
        if (c.fd < 0) {
            ++f.failures;
            continue;
        }
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.u32 = quint32(i);
        epoll_ctl(ep, EPOLL_CTL_ADD, c.fd, &ev);
    }
    const auto send = [&](int i) {
        Connection& c = conns[size_t(i)];
        const QByteArray bytes = request(i, c.n++);
        c.sentAt = monotonicUs();
        if (::send(c.fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL) != bytes.size())
            ++f.failures;
    };
    const qint64 began = monotonicUs();
    const qint64 until = began + qint64(seconds * 1e6);
    for (int i = 0; i < connections; ++i) {
        if (conns[size_t(i)].fd >= 0)
            send(i);
    }
    epoll_event events[64];
    char chunk[65536];
    bool done = false;
    while (!done) {
        const int n = epoll_wait(ep, events, 64, 1000);
        const qint64 now = monotonicUs();
        if (now >= until || n <= 0)
            done = true;
        for (int e = 0; e < n; ++e) {
            const int i = int(events[e].data.u32);
            Connection& c = conns[size_t(i)];
            const ssize_t got = ::recv(c.fd, chunk, sizeof chunk, 0);
            if (got <= 0) {
                ++f.failures;
                epoll_ctl(ep, EPOLL_CTL_DEL, c.fd, nullptr);
                continue;
            }
            c.in.append(chunk, int(got));
            while (const size_t len = datagramLength(c.in)) {
                const qint64 at = monotonicUs();
                latencies.push_back(at - c.sentAt);
                if (!answerOk(c.in.left(int(len))))
                    ++f.failures;
                c.in.remove(0, int(len));
                ++f.requests;
                if (limit > 0 && f.requests >= limit)
                    done = true;
                if (!done)
                    send(i);
            }
        }
    }
    f.seconds = double(monotonicUs() - began) / 1e6;
    for (Connection& c : conns) {
        if (c.fd >= 0)
            ::close(c.fd);
    }
    ::close(ep);
    f.p50us = percentile(latencies, 0.50);
    f.p99us = percentile(latencies, 0.99);
    f.maxUs = percentile(latencies, 1.0);
    return f;
}

ReferenceServer::ReferenceServer(const QString& socketPath)
{
    ::unlink(QFile::encodeName(socketPath).constData());
    listenFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(socketPath);
    std::strncpy(addr.sun_path, name.constData(), sizeof addr.sun_path - 1);
    if (listenFd < 0 || ::bind(listenFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listenFd, 1024) != 0) {
        if (listenFd >= 0)
            ::close(listenFd);
        listenFd = -1;
        return;
    }
    stopFd = eventfd(0, EFD_CLOEXEC);
    worker = std::thread([this] { run(); });
}

ReferenceServer::~ReferenceServer()
{
    if (worker.joinable()) {
        const quint64 one = 1;
        [[maybe_unused]] const ssize_t w = ::write(stopFd, &one, sizeof one);
        worker.join();
    }
    if (stopFd >= 0)
        ::close(stopFd);
    if (listenFd >= 0)
        ::close(listenFd);
}

void ReferenceServer::run()
{
    const QByteArray reply = GX2RpcPacket(QJsonObject{{QStringLiteral("err"), 0}}).toDatagram();
    const int ep = epoll_create1(EPOLL_CLOEXEC);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = listenFd;
    epoll_ctl(ep, EPOLL_CTL_ADD, listenFd, &ev);
    ev.data.fd = stopFd;
    epoll_ctl(ep, EPOLL_CTL_ADD, stopFd, &ev);
    std::vector<QByteArray> buffers(4096);
    epoll_event events[64];
    char chunk[65536];
    for (;;) {
        const int n = epoll_wait(ep, events, 64, -1);
        for (int e = 0; e < n; ++e) {
            const int fd = events[e].data.fd;
            if (fd == stopFd) {
                ::close(ep);
                return;
            }
            if (fd == listenFd) {
                int c = -1;
                while ((c = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
                    epoll_event cev{};
                    cev.events = EPOLLIN;
                    cev.data.fd = c;
                    epoll_ctl(ep, EPOLL_CTL_ADD, c, &cev);
                }
                continue;
            }
            const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
            QByteArray& in = buffers[size_t(fd) % buffers.size()];
            if (got <= 0) {
                epoll_ctl(ep, EPOLL_CTL_DEL, fd, nullptr);
                ::close(fd);
                in.clear();
                continue;
            }
            in.append(chunk, int(got));
            QByteArray out;
            while (const size_t len = datagramLength(in)) {
                if (len > size_t(PACKET_KEEPALIVE.size()) || !in.startsWith(PACKET_KEEPALIVE))
                    out += reply;
                in.remove(0, int(len));
            }
            if (!out.isEmpty()) {
                [[maybe_unused]] const ssize_t w =
                    ::send(fd, out.constData(), size_t(out.size()), MSG_NOSIGNAL);
            }
        }
    }
}
