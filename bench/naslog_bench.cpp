// Event-log appends per second: "naslog_append" through the real daemon's
// socket from N closed-loop connections, and NASLog::add called directly in
// this process. Both against private roots; prints its figures.
//
//   naslog_bench [--clients N] [--seconds S] [--direct K] [--daemon PATH]

#include "bench/benchsupport.h"
#include "gx2/gx2rpcpacket.h"
#include "routers/naslog.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

namespace {

struct Options
{
    int clients = 4;
    double seconds = 5;
    int direct = 20000;
    QString daemon;
};

Options parse(const QStringList& args)
{
    Options o;
    o.daemon = benchDaemonPath();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const QString& v = args[i + 1];
        if (args[i] == QLatin1String("--clients"))
            o.clients = qMax(1, v.toInt());
        else if (args[i] == QLatin1String("--seconds"))
            o.seconds = qMax(0.5, v.toDouble());
        else if (args[i] == QLatin1String("--direct"))
            o.direct = qMax(1, v.toInt());
        else if (args[i] == QLatin1String("--daemon"))
            o.daemon = v;
    }
    return o;
}

QJsonObject event(int client, qint64 i)
{
    return QJsonObject{
        {QStringLiteral("level"), QStringLiteral("Information")},
        {QStringLiteral("username"), QStringLiteral("bench")},
        {QStringLiteral("description"), QStringLiteral("client %1 event %2").arg(client).arg(i)}};
}

bool benchSocket(const Options& o)
{
    BenchSandbox box("naslog_bench");
    BenchDaemon daemon(box);
    if (!box.ok() || !daemon.start(o.daemon)) {
        std::fprintf(stderr, "naslog_bench: the daemon did not start listening\n");
        return false;
    }
    const LoadFigures f = closedLoop(box.socketPath(), o.clients, o.seconds, [](int c, qint64 n) {
        return GX2RpcPacket::make(QStringLiteral("naslog_append"), 0, event(c, n)).toDatagram();
    });
    std::printf("socket: %d clients, %lld appends in %.2f s: %.0f appends/s, "
                "latency p50 %.3f ms p99 %.3f ms max %.3f ms, failed %lld\n",
                o.clients, f.requests, f.seconds, f.rate(), double(f.p50us) / 1000.0,
                double(f.p99us) / 1000.0, double(f.maxUs) / 1000.0, f.failures);
    const QJsonObject recent = daemon.request(QStringLiteral("naslog_recent"), {});
    std::printf("        daemon answers naslog_recent with err %d after the load\n",
                recent.value(QStringLiteral("err")).toInt(-1));
    return true;
}

void benchDirect(const Options& o)
{
    BenchSandbox box("naslog_bench_direct");
    qputenv("NASBROLT_ROOT", QFile::encodeName(box.path(QStringLiteral("root"))));
    NASLog log;
    log.add(event(-1, -1)); // opens and creates the database outside the timing
    int failed = 0;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < o.direct; ++i)
        failed += log.add(event(-1, i)) != 0;
    const double secs = double(timer.nsecsElapsed()) / 1e9;
    std::printf("direct: %d NASLog::add calls in %.2f s: %.0f appends/s, failed %d\n", o.direct,
                secs, double(o.direct) / secs, failed);
    qunsetenv("NASBROLT_ROOT");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());
    std::printf("event-log append benchmark\n");
    if (!benchSocket(o))
        return 1;
    benchDirect(o);
    return 0;
}
