// Samba audit ingest: starts the real daemon in a private root, watches one
// directory, sends forwarded audit lines over UDP to 127.0.0.1:7100 and
// measures how many end up stored, how long the store takes after the last
// datagram, the daemon's memory and UDP drops. Phases, in this order:
//   paced        --rate N for --seconds S (default 10000/s for 20 s)
//   fast         --fast-rate N for --seconds S (default 50000/s)
//   loop busy    --rate N for --seconds S while another connection keeps the
//                event loop busy with "smbaudit_log_loadby" pages of
//                --busy-page records over the store the first phases filled
//   burst        --burst N as fast as possible (default 200000)
// then the daemon's memory a minute after the last phase (--rest S).
//
//   audit_ingest_bench [--rate N] [--fast-rate N] [--seconds S] [--burst N]
//                      [--busy-page N] [--rest S] [--daemon PATH] [--settle S]
//                      [--wait-max S] [--port-wait S] [--keep]
//
// A rate, --seconds or --burst of 0 skips the phases that use it.

#include "bench/benchsupport.h"
#include "gx2/gx2rpcpacket.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QLocalSocket>
#include <QThread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <thread>

namespace {

constexpr quint16 kPort = 7100;
constexpr int kPollMs = 500;
constexpr int kSampleMs = 100;

volatile std::sig_atomic_t interrupted = 0;

void onSignal(int)
{
    interrupted = 1;
}

struct Options
{
    int rate = 10000;
    int fastRate = 50000;
    int seconds = 20;
    int burst = 200000;
    int busyPage = 10000;
    int rest = 60;
    int settle = 10; // seconds without growth that end the wait
    int waitMax = 0; // 0: derived from the count
    int portWait = 600;
    bool keep = false;
    QString daemon;
};

Options parse(const QStringList& args)
{
    Options o;
    o.daemon = benchDaemonPath();
    for (int i = 1; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QLatin1String("--keep")) {
            o.keep = true;
            continue;
        }
        if (i + 1 >= args.size())
            break;
        const QString v = args[++i];
        if (a == QLatin1String("--rate"))
            o.rate = qMax(0, v.toInt());
        else if (a == QLatin1String("--fast-rate"))
            o.fastRate = qMax(0, v.toInt());
        else if (a == QLatin1String("--busy-page"))
            o.busyPage = qMax(1, v.toInt());
        else if (a == QLatin1String("--rest"))
            o.rest = qMax(0, v.toInt());
        else if (a == QLatin1String("--seconds"))
            o.seconds = qMax(0, v.toInt());
        else if (a == QLatin1String("--burst"))
            o.burst = qMax(0, v.toInt());
        else if (a == QLatin1String("--settle"))
            o.settle = qMax(1, v.toInt());
        else if (a == QLatin1String("--wait-max"))
            o.waitMax = qMax(0, v.toInt());
        else if (a == QLatin1String("--port-wait"))
            o.portWait = qMax(0, v.toInt());
        else if (a == QLatin1String("--daemon"))
            o.daemon = v;
        else
            std::fprintf(stderr, "audit_ingest_bench: unknown option %s\n", qPrintable(a));
    }
    return o;
}

using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

// ---- /proc readings ------------------------------------------------------

// "Udp:" counters of /proc/net/snmp by name (system-wide, this namespace).
QHash<QByteArray, qint64> udpSnmp()
{
    QHash<QByteArray, qint64> out;
    QFile f(QStringLiteral("/proc/net/snmp"));
    if (!f.open(QIODevice::ReadOnly))
        return out;
    QList<QByteArray> names;
    for (const QByteArray& line : f.readAll().split('\n')) {
        if (!line.startsWith("Udp: "))
            continue;
        const QList<QByteArray> parts = line.mid(5).simplified().split(' ');
        if (names.isEmpty()) {
            names = parts;
            continue;
        }
        for (int i = 0; i < parts.size() && i < names.size(); ++i)
            out.insert(names[i], parts[i].toLongLong());
        break;
    }
    return out;
}

// Sockets bound to the port: count, summed receive queue and drops.
struct PortState
{
    int sockets = 0;
    qint64 rxQueue = 0;
    qint64 drops = 0;
};

PortState portState(quint16 port)
{
    PortState s;
    const QByteArray hexPort = QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    for (const char* file : {"/proc/net/udp", "/proc/net/udp6"}) {
        QFile f(QString::fromLatin1(file));
        if (!f.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> lines = f.readAll().split('\n');
        for (int i = 1; i < lines.size(); ++i) {
            const QList<QByteArray> cols = lines[i].simplified().split(' ');
            if (cols.size() < 13 || !cols[1].endsWith(':' + hexPort))
                continue;
            ++s.sockets;
            s.rxQueue += cols[4].split(':').value(1).toLongLong(nullptr, 16);
            s.drops += cols.last().toLongLong();
        }
    }
    return s;
}

// CPU ticks per thread of a process.
QHash<QString, qint64> threadTicks(qint64 pid)
{
    QHash<QString, qint64> out;
    const QString base = QStringLiteral("/proc/%1/task").arg(pid);
    const QStringList tids = QDir(base).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tid : tids) {
        QFile f(base + QLatin1Char('/') + tid + QStringLiteral("/stat"));
        if (!f.open(QIODevice::ReadOnly))
            continue;
        const QByteArray stat = f.readAll();
        const int close = stat.lastIndexOf(')');
        const QList<QByteArray> rest = stat.mid(close + 2).split(' ');
        // Fields 14 and 15 (utime, stime) are 12 and 13 after the name.
        if (rest.size() > 13)
            out.insert(tid, rest[11].toLongLong() + rest[12].toLongLong());
    }
    return out;
}

// ---- the sender -------------------------------------------------------------

class Sender
{
public:
    Sender(const QByteArray& share, const QByteArray& watched) : share(share), watched(watched)
    {
        fd = ::socket(AF_INET, SOCK_DGRAM, 0);
        to.sin_family = AF_INET;
        to.sin_port = htons(kPort);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~Sender()
    {
        if (fd >= 0)
            ::close(fd);
    }

    bool ok() const { return fd >= 0; }

    // Blocking socket: a full send buffer waits rather than failing.
    bool send(qint64 n)
    {
        const QByteArray line = datagram(n);
        if (::sendto(fd, line.constData(), size_t(line.size()), 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof to) == line.size())
            return true;
        ++errors;
        return false;
    }

    qint64 errors = 0;

private:
    // The line rsyslog forwards: date, time, host, tag and the audit message;
    // mostly reads, with the other kinds mixed in.
    QByteArray datagram(qint64 n)
    {
        const std::time_t now = std::time(nullptr);
        if (now != stampSecond) {
            stampSecond = now;
            std::tm tm{};
            localtime_r(&now, &tm);
            char text[32];
            std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
            stamp = text;
        }
        const QByteArray file = watched + "/f" + QByteArray::number(n) + ".txt";
        QByteArray op;
        switch (n % 20) {
        case 12:
        case 13:
            op = "create_file|ok|0x16019f|file|create|" + file;
            break;
        case 14:
        case 15:
            op = "create_file|ok|0x120196|file|overwrite_if|" + file;
            break;
        case 16:
            op = "mkdirat|ok|" + watched + "/d" + QByteArray::number(n);
            break;
        case 17:
            op = "renameat|ok|" + file + '|' + watched + "/g" + QByteArray::number(n) + ".txt";
            break;
        case 18:
            op = "renameat|ok|" + file + '|' + share + "/.recycle/f" + QByteArray::number(n) +
                 ".txt";
            break;
        case 19:
            op = "unlinkat|ok|" + file;
            break;
        default:
            op = "create_file|ok|0x120089|file|open|" + file;
        }
        return stamp + " nas smbd_audit:  alice|users|192.168.1.5|pc1|" + share + "|share|" + op +
               '\n';
    }

    int fd = -1;
    sockaddr_in to{};
    QByteArray share;
    QByteArray watched;
    std::time_t stampSecond = 0;
    QByteArray stamp;
};

// ---- one phase ---------------------------------------------------------------

struct Sampler
{
    qint64 pid = 0;
    qint64 rssPeakKb = 0;
    qint64 rxQueuePeak = 0;
    Clock::time_point last;

    void sample()
    {
        last = Clock::now();
        rssPeakKb = qMax(rssPeakKb, procStatusKb(pid, "VmRSS"));
        rxQueuePeak = qMax(rxQueuePeak, portState(kPort).rxQueue);
    }
    void maybe()
    {
        if (Clock::now() - last >= std::chrono::milliseconds(kSampleMs))
            sample();
    }
};

qint64 reccount(BenchDaemon& d)
{
    const QJsonObject answer = d.request(
        QStringLiteral("smbaudit_log_loadby"),
        {{QStringLiteral("sadno"), 0}, {QStringLiteral("page"), 1}, {QStringLiteral("ofpage"), 1}});
    if (answer.isEmpty() || answer.value(QStringLiteral("err")).toInt(-1) != 0)
        return -1;
    return qint64(answer.value(QStringLiteral("reccount")).toDouble(-1));
}

void runPhase(const char* title, BenchDaemon& d, Sender& s, const Options& o, qint64 count,
              int rate, qint64& nextN)
{
    std::printf("\n== %s ==\n", title);
    const qint64 storedBefore = qMax<qint64>(0, reccount(d));
    const QHash<QByteArray, qint64> snmpBefore = udpSnmp();
    const PortState portBefore = portState(kPort);
    const QHash<QString, qint64> ticksBefore = threadTicks(d.pid);
    const qint64 errorsBefore = s.errors;
    Sampler sampler;
    sampler.pid = d.pid;
    sampler.sample();

    // Sending: paced against a steady clock in 1 ms slices, or flat out.
    const Clock::time_point begin = Clock::now();
    qint64 sent = 0;
    while (sent < count && !interrupted) {
        qint64 due = count;
        if (rate > 0) {
            const double elapsed = secondsBetween(begin, Clock::now());
            due = qMin(count, qint64(elapsed * rate) + 1);
        }
        const qint64 sliceEnd = rate > 0 ? due : qMin(count, sent + 1000);
        while (sent < sliceEnd) {
            s.send(nextN++);
            ++sent;
        }
        sampler.maybe();
        if (rate > 0 && sent < count)
            std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    const Clock::time_point lastSent = Clock::now();
    const double sendSecs = secondsBetween(begin, lastSent);
    const PortState portAfterSend = portState(kPort);
    const qint64 storedAtLastSend = qMax(storedBefore, reccount(d));

    // Waiting for the store: until all are there, or no growth for settle s.
    const int waitMax = o.waitMax > 0 ? o.waitMax : int(60 + sent / 500);
    qint64 stored = storedAtLastSend;
    Clock::time_point lastGrowth = Clock::now();
    bool complete = false;
    bool answered = true;
    while (!interrupted) {
        const qint64 now = reccount(d);
        sampler.sample();
        if (now < 0) {
            answered = false;
        } else if (now > stored) {
            stored = now;
            lastGrowth = Clock::now();
        }
        if (stored - storedBefore >= sent) {
            complete = true;
            break;
        }
        const Clock::time_point t = Clock::now();
        if (secondsBetween(lastGrowth, t) >= o.settle || secondsBetween(lastSent, t) >= waitMax)
            break;
        QThread::msleep(kPollMs);
    }
    const Clock::time_point waitEnd = Clock::now();
    const QHash<QByteArray, qint64> snmpAfter = udpSnmp();
    const PortState portAfter = portState(kPort);
    const QHash<QString, qint64> ticksAfter = threadTicks(d.pid);

    const qint64 got = stored - storedBefore;
    const qint64 lost = sent - got;
    const double storeSecs = secondsBetween(lastSent, complete ? waitEnd : lastGrowth);
    const double tick = double(sysconf(_SC_CLK_TCK));
    const QString main = QString::number(d.pid);
    double mainCpu = 0, otherCpu = 0;
    for (auto it = ticksAfter.constBegin(); it != ticksAfter.constEnd(); ++it) {
        const double secs = double(it.value() - ticksBefore.value(it.key())) / tick;
        (it.key() == main ? mainCpu : otherCpu) += secs;
    }
    const auto snmpDelta = [&](const char* key) {
        return snmpAfter.value(key) - snmpBefore.value(key);
    };

    std::printf("sent             %lld datagrams in %.2f s (%.0f/s achieved), send errors %lld\n",
                sent, sendSecs, sendSecs > 0 ? double(sent) / sendSecs : 0.0,
                s.errors - errorsBefore);
    std::printf("stored           %lld%s\n", got, answered ? "" : " (some polls went unanswered)");
    std::printf("lost             %lld (%.2f %%)\n", lost,
                sent > 0 ? 100.0 * double(lost) / double(sent) : 0.0);
    if (got > 0 || complete)
        std::printf("time to store    %.1f s after the last datagram (%s)\n", storeSecs,
                    complete      ? "everything stored"
                    : interrupted ? "interrupted"
                                  : "until the count stopped growing or the wait limit");
    else
        std::printf("time to store    n/a (nothing stored)\n");
    std::printf("store rate       %lld stored while sending, then %.0f records/s\n",
                storedAtLastSend - storedBefore,
                storeSecs > 0 ? double(stored - storedAtLastSend) / storeSecs : 0.0);
    std::printf("daemon memory    VmRSS sampled peak %.1f MiB, now %.1f MiB; VmHWM %.1f MiB\n",
                double(sampler.rssPeakKb) / 1024.0, double(procStatusKb(d.pid, "VmRSS")) / 1024.0,
                double(procStatusKb(d.pid, "VmHWM")) / 1024.0);
    std::printf("UDP drops        port %u socket drops %lld (while sending %lld); "
                "/proc/net/snmp RcvbufErrors +%lld, InErrors +%lld, InDatagrams +%lld "
                "(system-wide)\n",
                unsigned(kPort), portAfter.drops - portBefore.drops,
                portAfterSend.drops - portBefore.drops, snmpDelta("RcvbufErrors"),
                snmpDelta("InErrors"), snmpDelta("InDatagrams"));
    std::printf("socket rx queue  sampled peak %lld bytes\n", sampler.rxQueuePeak);
    std::printf("daemon CPU       event-loop thread %.2f s, other threads %.2f s over %.1f s\n",
                mainCpu, otherCpu, secondsBetween(begin, waitEnd));
    std::fflush(stdout);
}

// Keeps the daemon's event loop busy from its own connection with a real
// command: pages of records from the store, built and sent on the loop.
class LoopBusy
{
public:
    LoopBusy(const QString& socketPath, int page)
    {
        worker = std::thread([this, socketPath, page] { run(socketPath, page); });
    }
    ~LoopBusy() { finish(); }

    void finish()
    {
        stop = true;
        if (worker.joinable())
            worker.join();
    }
    void report() const
    {
        std::printf("loop busy        %lld \"smbaudit_log_loadby\" pages, the loop held %.1f s in "
                    "all, longest %.2f s\n",
                    requests.load(), double(busyUs.load()) / 1e6, double(longestUs.load()) / 1e6);
    }

private:
    void run(const QString& socketPath, int page)
    {
        QLocalSocket socket;
        socket.connectToServer(socketPath);
        if (!socket.waitForConnected(5000))
            return;
        const QByteArray request = GX2RpcPacket::make(QStringLiteral("smbaudit_log_loadby"), 0,
                                                      {{QStringLiteral("sadno"), 0},
                                                       {QStringLiteral("page"), 1},
                                                       {QStringLiteral("ofpage"), page}})
                                       .toDatagram();
        QByteArray buffer;
        while (!stop) {
            QElapsedTimer t;
            t.start();
            socket.write(request);
            socket.flush();
            GX2RpcPacket answer;
            while (!stop && answer.fromDatagram(buffer) != GX2RpcPacket::Taken) {
                if (socket.waitForReadyRead(200))
                    buffer += socket.readAll();
                else if (socket.state() != QLocalSocket::ConnectedState)
                    return;
            }
            const qint64 us = t.nsecsElapsed() / 1000;
            busyUs += us;
            longestUs = qMax<qint64>(longestUs, us);
            ++requests;
        }
    }

    std::atomic<bool> stop{false};
    std::atomic<qint64> requests{0};
    std::atomic<qint64> busyUs{0};
    std::atomic<qint64> longestUs{0};
    std::thread worker;
};

void rest(BenchDaemon& daemon, int seconds)
{
    if (seconds <= 0)
        return;
    std::printf("\n== rest: %d s without traffic ==\n", seconds);
    std::fflush(stdout);
    for (int i = 0; i < seconds * 10 && !interrupted; ++i)
        QThread::msleep(100);
    std::printf("daemon memory    VmRSS %.1f MiB %d s after the last phase (RssAnon %.1f MiB, "
                "RssFile %.1f MiB; VmHWM %.1f MiB)\n",
                double(procStatusKb(daemon.pid, "VmRSS")) / 1024.0, seconds,
                double(procStatusKb(daemon.pid, "RssAnon")) / 1024.0,
                double(procStatusKb(daemon.pid, "RssFile")) / 1024.0,
                double(procStatusKb(daemon.pid, "VmHWM")) / 1024.0);
}

void runPhases(BenchDaemon& daemon, Sender& sender, const Options& o, const QString& socketPath)
{
    qint64 n = 0;
    const auto paced = [&](const char* what, int rate) {
        const QByteArray title = QStringLiteral("%1: %2/s for %3 s")
                                     .arg(QLatin1String(what))
                                     .arg(rate)
                                     .arg(o.seconds)
                                     .toLatin1();
        runPhase(title.constData(), daemon, sender, o, qint64(rate) * o.seconds, rate, n);
    };
    if (o.rate > 0 && o.seconds > 0 && !interrupted)
        paced("paced", o.rate);
    if (o.fastRate > 0 && o.seconds > 0 && !interrupted)
        paced("fast", o.fastRate);
    if (o.rate > 0 && o.seconds > 0 && !interrupted) {
        LoopBusy busy(socketPath, o.busyPage);
        paced("loop busy", o.rate);
        busy.finish();
        busy.report();
    }
    if (o.burst > 0 && !interrupted) {
        const QByteArray title =
            QStringLiteral("burst: %1 as fast as possible").arg(o.burst).toLatin1();
        runPhase(title.constData(), daemon, sender, o, o.burst, 0, n);
    }
    rest(daemon, o.rest);
}

bool waitForFreePort(const Options& o)
{
    // Another program on the port would take our datagrams.
    QElapsedTimer portTimer;
    portTimer.start();
    while (portState(kPort).sockets > 0) {
        if (interrupted || portTimer.elapsed() > qint64(o.portWait) * 1000)
            return false;
        std::printf("UDP port %u in use, waiting...\n", unsigned(kPort));
        std::fflush(stdout);
        QThread::sleep(5);
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const Options o = parse(app.arguments());
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    if (!QFileInfo(o.daemon).isExecutable()) {
        std::fprintf(stderr, "audit_ingest_bench: no daemon at %s (use --daemon)\n",
                     qPrintable(o.daemon));
        return 1;
    }
    if (!waitForFreePort(o)) {
        std::fprintf(stderr, "audit_ingest_bench: UDP port %u stays in use\n", unsigned(kPort));
        return 1;
    }
    BenchSandbox box("audit_ingest_bench", o.keep);
    const QString share = box.path(QStringLiteral("share"));
    const QString watched = share + QStringLiteral("/watched");
    BenchDaemon daemon(box);
    if (!box.ok() || !QDir().mkpath(watched) ||
        !daemon.start(QFileInfo(o.daemon).absoluteFilePath())) {
        std::fprintf(stderr, "audit_ingest_bench: the daemon did not start listening\n");
        return 1;
    }
    std::printf("audit ingest benchmark: daemon pid %lld, root %s, %d CPUs\n", daemon.pid,
                qPrintable(box.path()), QThread::idealThreadCount());
    // The collector binds the port during start-up.
    QElapsedTimer bindTimer;
    bindTimer.start();
    while (portState(kPort).sockets == 0 && bindTimer.elapsed() < 5000)
        QThread::msleep(50);
    const QJsonObject added = daemon.request(QStringLiteral("smbaudit_dir_append"),
                                             {{QStringLiteral("dirs"), QJsonArray{watched}}});
    const int err = added.value(QStringLiteral("err")).toInt(-1);
    std::printf("watched directory %s: err %d%s\n", qPrintable(watched), err,
                err == 0 ? "" : " (records will not be kept)");
    std::fflush(stdout);

    Sender sender(QFile::encodeName(share), QFile::encodeName(watched));
    if (!sender.ok()) {
        std::fprintf(stderr, "audit_ingest_bench: no UDP socket\n");
        return 1;
    }
    runPhases(daemon, sender, o, box.socketPath());
    std::printf("\ndaemon peak memory (VmHWM) %.1f MiB\n",
                double(procStatusKb(daemon.pid, "VmHWM")) / 1024.0);
    const int status = daemon.stop();
    std::printf("daemon stopped, exit status %d%s\n", status,
                o.keep ? "" : ", temporary root removed");
    if (o.keep)
        std::printf("kept %s\n", qPrintable(box.path()));
    return interrupted ? 130 : 0;
}
