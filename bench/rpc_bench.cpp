// RPC throughput: closed-loop connections sending "system_working" to the
// real daemon and, in the same run, to a minimal epoll server with the same
// framing. Also the daemon's start-up time and idle memory.
//
//   rpc_bench [--seconds S] [--connections 1,8,32] [--daemon PATH]

#include "bench/benchsupport.h"
#include "gx2/gx2rpcpacket.h"

#include <QCoreApplication>
#include <QFile>
#include <QThread>

#include <cstdio>

namespace {

struct Options
{
    double seconds = 3;
    QList<int> connections{1, 8, 32};
    QString daemon;
};

Options parse(const QStringList& args)
{
    Options o;
    o.daemon = benchDaemonPath();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const QString& v = args[i + 1];
        if (args[i] == QLatin1String("--seconds")) {
            o.seconds = qMax(0.2, v.toDouble());
        } else if (args[i] == QLatin1String("--connections")) {
            o.connections.clear();
            for (const QString& n : v.split(QLatin1Char(',')))
                o.connections << qMax(1, n.toInt());
        } else if (args[i] == QLatin1String("--daemon")) {
            o.daemon = v;
        }
    }
    return o;
}

void printRow(const char* who, int n, const LoadFigures& f)
{
    std::printf("%-10s %5d %10.0f %8lld %8lld %8lld %8lld\n", who, n, f.rate(), f.p50us, f.p99us,
                f.maxUs, f.failures);
}

// A start in steady state: the identifier exists and rsyslog already forwards.
void prepareSteadyRoot(const BenchSandbox& box)
{
    QFile conf(box.path(QStringLiteral("root/etc/rsyslog.conf")));
    if (conf.open(QIODevice::WriteOnly))
        conf.write("$template RSYSLOG_TimeFormat_For_ORVO6,\"%$NOW% %TIMESTAMP:8:15% %hostname% "
                   "%syslogtag% %msg%\\n\"\nlocal7.* @localhost:7100;RSYSLOG_TimeFormat_For_ORVO6");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());
    BenchSandbox box("rpc_bench");
    if (!box.ok()) {
        std::fprintf(stderr, "rpc_bench: no sandbox\n");
        return 1;
    }
    prepareSteadyRoot(box);
    BenchDaemon daemon(box);
    double firstStartMs = 0;
    if (!daemon.start(o.daemon, true, &firstStartMs)) {
        std::fprintf(stderr, "rpc_bench: the daemon did not start listening\n");
        return 1;
    }
    // The first start creates the databases and the identifier; the second
    // is the start of an appliance that has run before.
    daemon.stop();
    double startMs = 0;
    if (!daemon.start(o.daemon, true, &startMs)) {
        std::fprintf(stderr, "rpc_bench: the daemon did not start again\n");
        return 1;
    }
    QThread::msleep(1000);
    std::printf("start to listening: %.1f ms (first start on an empty root %.1f ms), real tools\n",
                startMs, firstStartMs);
    std::printf("idle RSS: %.1f MB (%lld KiB)\n",
                double(procStatusKb(daemon.pid, "VmRSS")) / 1024.0,
                procStatusKb(daemon.pid, "VmRSS"));

    const QString refPath = box.path(QStringLiteral("tmp/reference.sock"));
    ReferenceServer reference(refPath);
    if (!reference.ok()) {
        std::fprintf(stderr, "rpc_bench: the reference server did not start\n");
        return 1;
    }
    const QByteArray working =
        GX2RpcPacket(QJsonObject{{QStringLiteral("cmd"), QStringLiteral("system_working")}})
            .toDatagram();
    const auto request = [&](int, qint64) { return working; };

    std::printf("\n\"system_working\", closed loop, %.1f s per row\n", o.seconds);
    std::printf("%-10s %5s %10s %8s %8s %8s %8s\n", "server", "conns", "req/s", "p50 us", "p99 us",
                "max us", "failed");
    for (const int n : o.connections) {
        const LoadFigures d = closedLoop(box.socketPath(), n, o.seconds, request);
        const LoadFigures r = closedLoop(refPath, n, o.seconds, request);
        printRow("nasbrolt", n, d);
        printRow("reference", n, r);
        std::printf("%-10s %5d %9.0f%%\n", "ratio", n,
                    r.rate() > 0 ? 100 * d.rate() / r.rate() : 0);
    }
    std::printf("\ndaemon RSS after the load: %.1f MB\n",
                double(procStatusKb(daemon.pid, "VmRSS")) / 1024.0);
    const int status = daemon.stop();
    std::printf("daemon stopped, exit status %d\n", status);
    return 0;
}
