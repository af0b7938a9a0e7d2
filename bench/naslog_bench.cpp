// Event-log appends per second: through the local socket from N concurrent
// clients (each on its own connection, one request at a time), and directly
// through NASLog::add. Runs against a private root; prints its figures.
//
//   naslog_bench [--clients N] [--count M] [--direct K]

#include "gx2/gx2localserver.h"
#include "gx2/gx2rpcpacket.h"
#include "routers/sysinfomodule.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

struct Options
{
    int clients = 4;
    int count = 500; // per client
    int direct = 2000;
};

Options parse(const QStringList& args)
{
    Options o;
    for (int i = 1; i + 1 < args.size(); i += 2) {
        const int value = args[i + 1].toInt();
        if (args[i] == QLatin1String("--clients"))
            o.clients = qMax(1, value);
        else if (args[i] == QLatin1String("--count"))
            o.count = qMax(1, value);
        else if (args[i] == QLatin1String("--direct"))
            o.direct = qMax(1, value);
    }
    return o;
}

QJsonObject event(int client, int i)
{
    return QJsonObject{
        {QStringLiteral("level"), QStringLiteral("Information")},
        {QStringLiteral("username"), QStringLiteral("bench")},
        {QStringLiteral("description"), QStringLiteral("client %1 event %2").arg(client).arg(i)}};
}

// One connection, request after request; latencies in microseconds.
std::vector<qint64> runClient(int client, int count, std::atomic_int& failures)
{
    std::vector<qint64> latencies;
    QLocalSocket socket;
    socket.connectToServer(QString::fromLatin1(kBroltSocketName));
    if (!socket.waitForConnected(5000)) {
        failures += count;
        return latencies;
    }
    QByteArray buffer;
    for (int i = 0; i < count; ++i) {
        QElapsedTimer timer;
        timer.start();
        socket.write(
            GX2RpcPacket::make(QStringLiteral("naslog_append"), 0, event(client, i)).toDatagram());
        socket.flush();
        GX2RpcPacket answer;
        while (answer.fromDatagram(buffer) != GX2RpcPacket::Taken) {
            if (!socket.waitForReadyRead(10000))
                break;
            buffer += socket.readAll();
        }
        if (answer.value(QStringLiteral("err")).toInt(-1) != 0)
            ++failures;
        latencies.push_back(timer.nsecsElapsed() / 1000);
    }
    return latencies;
}

qint64 percentile(std::vector<qint64>& v, double p)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(p * double(v.size())))];
}

void benchSocket(const Options& o)
{
    std::atomic_int failures{0};
    std::atomic_int finished{0};
    std::vector<std::vector<qint64>> results(size_t(o.clients));
    std::vector<std::thread> threads;
    QElapsedTimer timer;
    timer.start();
    for (int c = 0; c < o.clients; ++c)
        threads.emplace_back([&, c] {
            results[size_t(c)] = runClient(c, o.count, failures);
            ++finished;
        });
    while (finished < o.clients)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const double secs = double(timer.nsecsElapsed()) / 1e9;
    for (auto& t : threads)
        t.join();
    std::vector<qint64> all;
    for (const auto& r : results)
        all.insert(all.end(), r.begin(), r.end());
    const int total = o.clients * o.count;
    std::printf("socket: %d clients x %d appends = %d in %.2f s: %.0f appends/s, "
                "latency p50 %.2f ms p99 %.2f ms max %.2f ms, failed %d\n",
                o.clients, o.count, total, secs, double(total) / secs,
                double(percentile(all, 0.50)) / 1000.0, double(percentile(all, 0.99)) / 1000.0,
                double(percentile(all, 1.0)) / 1000.0, failures.load());
}

void benchDirect(const Options& o, NASLog& log)
{
    int failed = 0;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < o.direct; ++i)
        failed += log.add(event(-1, i)) != 0;
    const double secs = double(timer.nsecsElapsed()) / 1e9;
    std::printf("direct: %d NASLog::add calls in %.2f s: %.0f appends/s, failed %d\n", o.direct,
                secs, double(o.direct) / secs, failed);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());
    QTemporaryDir root;
    QTemporaryDir tmp;
    qputenv("NASBROLT_ROOT", QFile::encodeName(root.path()));
    qputenv("TMPDIR", QFile::encodeName(tmp.path()));

    GX2LocalServer server;
    SysInfoModule module;
    server.add(&module);
    if (!server.start(QString::fromLatin1(kBroltSocketName)) || !server.isListening()) {
        std::fprintf(stderr, "naslog_bench: cannot listen\n");
        return 1;
    }
    std::printf("event-log append benchmark, database %s/var/lib/orvolog/orvolog.db\n",
                qPrintable(root.path()));
    benchSocket(o);
    benchDirect(o, module.eventLog());
    return 0;
}
