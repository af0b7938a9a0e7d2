#pragma once

#include "gx2/gx2todorouter.h"
#include "routers/lookoutsnapshot.h"
#include "routers/naslog.h"

#include <QHash>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>

// What a sampler loop reads from the machine. A loop makes one for its whole
// life: the network and disk rates need the previous sample.
class LookoutSources
{
public:
    virtual ~LookoutSources() = default;
    // Everything but the event log, which the module adds.
    virtual void sample(LookoutParts& parts) = 0;
};
using LookoutSourcesMaker = std::function<std::unique_ptr<LookoutSources>()>;

// The sampler's periods. The daemon keeps these; tests shorten them and may
// bring their own monotonic clock.
struct LookoutTiming
{
    qint64 idleLimitMs = 30000;
    int cycleMs = 2000;
    int firstAnswerMs = 5000;
    std::function<qint64()> clockMs; // empty: the steady clock
};

// The event log's RPC face and the live dashboard. The dashboard snapshot is
// made by a sampler thread that runs only while somebody watches: every
// "system_lookout" keeps it alive for idleLimitMs, and requests are answered
// from the last snapshot, never by sampling on the request's path.
class SysInfoModule : public GX2TodoRouter
{
    Q_OBJECT

public:
    explicit SysInfoModule(QObject* parent = nullptr);
    SysInfoModule(const LookoutTiming& timing, LookoutSourcesMaker sources,
                  QObject* parent = nullptr);
    // Waits for a sampler still running: it uses this object.
    ~SysInfoModule() override;

    NASLog& eventLog() { return naslog; }
    // Stores the appends waiting for their turn of the loop (also at quit):
    // the appends of one turn go into one transaction.
    void storeAppends();

    bool samplerRunning() const { return running; }
    // The sampler loop.
    void run();

private slots:
    void naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);
    void system_lookout(GX2RpcPacket* retObject, GX2RpcPacket cmdObject);

private:
    Q_DISABLE_COPY(SysInfoModule)

    qint64 nowMs() const;
    bool watched() const;
    void startSampler();
    void sampleWhileWatched();
    bool takeOverLateRequest();
    bool pause(int ms) const;
    void publish(const QJsonObject& next);
    void answerWaiter(quint64 id);

    NASLog naslog;
    QList<QJsonObject> appends;
    QList<GX2Deferred> appendAnswers;

    std::shared_mutex snapshotLock;
    QJsonObject snapshot; // empty until the first cycle ends
    const qint64 idleLimitMs;
    const int cycleMs;
    const int firstAnswerMs;
    const std::function<qint64()> clockMs;
    const LookoutSourcesMaker makeSources;
    // Time of the last request on the monotonic clock; restarted by every
    // request, read by the sampler once a cycle.
    std::atomic<qint64> keepAlive;
    // Set by whoever starts the sampler, before the thread exists, so that
    // two quick requests start one.
    std::atomic_bool running{false};
    std::atomic<int> samplerThreads{0};
    std::atomic_bool quitting{false};
    // Requests that came before the first snapshot; answered when it is
    // published or after firstAnswerMs, whichever takes them first.
    std::mutex waitLock;
    QHash<quint64, GX2Deferred> waiting;
    quint64 nextWaiter = 0;
};
