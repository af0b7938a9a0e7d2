#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <thread>
#include <vector>

// What the benchmark programs share: a private root for the real daemon,
// the daemon itself, /proc readings and a closed-loop load over the socket.

// A temporary directory laid out as root/ (NASBROLT_ROOT), tmp/ (TMPDIR, the
// socket) and tools/ (NASBROLT_TOOLS: a sudo that answers df with a calm root
// and a systemctl that does nothing, so no benchmark touches the machine).
class BenchSandbox
{
public:
    explicit BenchSandbox(const char* name, bool keep = false);

    bool ok() const { return ready; }
    QString path(const QString& relative = QString()) const;
    QString socketPath() const;

private:
    QTemporaryDir dir;
    bool ready = false;
};

class BenchDaemon
{
public:
    explicit BenchDaemon(const BenchSandbox& sandbox) : box(sandbox) {}
    ~BenchDaemon() { stop(); }
    BenchDaemon(const BenchDaemon&) = delete;
    BenchDaemon& operator=(const BenchDaemon&) = delete;

    // Starts program in the sandbox and waits until it accepts connections;
    // realTools leaves NASBROLT_TOOLS unset. startMs: spawn to listening.
    bool start(const QString& program, bool realTools = false, double* startMs = nullptr);
    // SIGTERM and wait; SIGKILL after 20 s. The exit status, -1 when killed.
    int stop();

    // One request, one answer; empty when none came in time.
    QJsonObject request(const QString& cmd, const QJsonObject& params, int limitMs = 30000);

    qint64 pid = 0;

private:
    bool connect();

    const BenchSandbox& box;
    QLocalSocket socket;
    QByteArray buffer;
};

// The default daemon: the nasbrolt built beside the benchmark programs.
QString benchDaemonPath();
// A value of /proc/<pid>/status in KiB ("VmRSS", "VmHWM"); -1 when unreadable.
qint64 procStatusKb(qint64 pid, const char* key);
// Percentile p (0..1) of values, which it sorts.
qint64 percentile(std::vector<qint64>& values, double p);

struct LoadFigures
{
    qint64 requests = 0;
    qint64 failures = 0; // answers without "err":0, or connections lost
    double seconds = 0;
    qint64 p50us = 0;
    qint64 p99us = 0;
    qint64 maxUs = 0;
    double rate() const { return seconds > 0 ? double(requests) / seconds : 0; }
};

// Closed loop on one thread: `connections` connections to socketPath, each
// sending the next datagram as soon as the previous answer arrived, until
// `seconds` have passed or `limit` requests (0: no limit) were answered.
LoadFigures closedLoop(const QString& socketPath, int connections, double seconds,
                       const std::function<QByteArray(int connection, qint64 n)>& request,
                       qint64 limit = 0);

// A minimal epoll server with the same framing that answers every datagram
// with {"err":0}: the reference the daemon's figures are compared with.
class ReferenceServer
{
public:
    explicit ReferenceServer(const QString& socketPath);
    ~ReferenceServer();
    ReferenceServer(const ReferenceServer&) = delete;
    ReferenceServer& operator=(const ReferenceServer&) = delete;
    bool ok() const { return listenFd >= 0; }

private:
    void run();

    int listenFd = -1;
    int stopFd = -1;
    std::thread worker;
};
