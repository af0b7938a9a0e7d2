#include "routers/sysinfomodule.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2workers.h"
#include "vx/vxcpu.h"
#include "vx/vxdisk.h"
#include "vx/vxlvm.h"
#include "vx/vxmemory.h"
#include "vx/vxnetwork.h"
#include "vx/vxsystem.h"
#include "vx/vxzfs.h"

#include <QElapsedTimer>
#include <QTimer>

#include <chrono>
#include <thread>

namespace {

// The longest a quit or the module's end waits for a pausing sampler.
constexpr int kQuitPollMs = 100;

class MachineSources : public LookoutSources
{
public:
    void sample(LookoutParts& parts) override
    {
        VXCpu::cpuProcessing(parts.cpu, parts.process);
        VXMemory::alload(parts.memory);
        network.speeds(parts.nics, parts.readall, parts.writeall);
        disk.totalSpeed(parts.diskSpeed);
        disk.temperatures(parts.temperatures, parts.minTemperature, parts.maxTemperature);
        parts.mounts = VXLvm::lvAllMounts();
        parts.lvmGroups = VXLvm::vgAlload();
        parts.zfsPools = VXZfs::vgAllist();
        parts.devMounts = VXLvm::lvDevMounts();
        parts.uptime = VXSystem::uptime();
        parts.loadAverage = VXSystem::loadAverage();
        parts.kernelVersion = VXSystem::kernelVersion();
        parts.hostname = VXNetwork::hostname();
    }

private:
    VXNetwork network;
    VXDisk disk;
};

GX2RpcPacket lookoutAnswer(const QJsonObject& snapshot)
{
    GX2RpcPacket answer;
    answer.setResults(snapshot);
    return answer;
}

} // namespace

SysInfoModule::SysInfoModule(QObject* parent)
    : SysInfoModule(
          LookoutTiming(), [] { return std::make_unique<MachineSources>(); }, parent)
{
}

SysInfoModule::SysInfoModule(const LookoutTiming& timing, LookoutSourcesMaker sources,
                             QObject* parent)
    : GX2TodoRouter(parent), idleLimitMs(timing.idleLimitMs), cycleMs(timing.cycleMs),
      firstAnswerMs(timing.firstAnswerMs), clockMs(timing.clockMs), makeSources(std::move(sources)),
      keepAlive(0)
{
    naslog.reloadPool();
}

SysInfoModule::~SysInfoModule()
{
    quitting = true;
    while (samplerThreads > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(kQuitPollMs / 10));
    QHash<quint64, GX2Deferred> left;
    {
        std::lock_guard<std::mutex> guard(waitLock);
        left.swap(waiting);
    }
    for (const GX2Deferred& later : qAsConst(left))
        later.answer(lookoutAnswer(QJsonObject()));
}

void SysInfoModule::naslog_append(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    // Answered once stored, together with the appends of the other
    // connections that arrived in the same turn of the loop.
    appends << cmdObject.value(QStringLiteral("params")).toObject();
    appendAnswers << retObject->answerLater();
    if (appends.size() == 1)
        QMetaObject::invokeMethod(this, &SysInfoModule::storeAppends, Qt::QueuedConnection);
}

void SysInfoModule::storeAppends()
{
    const QList<bool> stored = naslog.logPushAll(appends);
    // The store's own codes stay inside: the front end knows one failure.
    for (int i = 0; i < appendAnswers.size(); ++i)
        appendAnswers[i].answer(GX2RpcPacket(
            QJsonObject{{QStringLiteral("err"), stored.value(i) ? kErrOk : kErrWriteFailed}}));
    appends.clear();
    appendAnswers.clear();
}

void SysInfoModule::naslog_recent(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    retObject->insert(QStringLiteral("err"), kErrOk);
    retObject->insert(QStringLiteral("results"),
                      QJsonObject{{QStringLiteral("records"), naslog.logPool()}});
}

void SysInfoModule::system_lookout(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    keepAlive = nowMs();
    startSampler();
    // Held across the look and the enrolment: a snapshot published in
    // between would otherwise leave this request waiting for nothing.
    std::lock_guard<std::mutex> guard(waitLock);
    QJsonObject copy;
    {
        std::shared_lock<std::shared_mutex> read(snapshotLock);
        copy = snapshot;
    }
    if (!copy.isEmpty())
        return retObject->setResults(copy);
    // The first cycle runs its tools for seconds: the loop goes on serving
    // the other connections meanwhile.
    const quint64 id = nextWaiter++;
    waiting.insert(id, retObject->answerLater());
    QTimer::singleShot(firstAnswerMs, this, [this, id] { answerWaiter(id); });
}

qint64 SysInfoModule::nowMs() const
{
    if (clockMs)
        return clockMs();
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool SysInfoModule::watched() const
{
    return nowMs() - keepAlive < idleLimitMs;
}

void SysInfoModule::startSampler()
{
    bool idle = false;
    if (!running.compare_exchange_strong(idle, true))
        return;
    ++samplerThreads;
    if (!GX2Workers::start(QStringLiteral("lookout sampler"), [this] {
            run();
            --samplerThreads; // the last touch of this object
        })) {
        // The daemon is quitting: requests get what there is.
        --samplerThreads;
        running = false;
    }
}

void SysInfoModule::run()
{
    do {
        sampleWhileWatched();
        running = false;
    } while (takeOverLateRequest());
}

bool SysInfoModule::takeOverLateRequest()
{
    // A request after the loop's last look at the keep-alive found the
    // sampler still marked running and started none: carry on for it.
    if (quitting || GX2Workers::stopping() || !watched())
        return false;
    bool idle = false;
    return running.compare_exchange_strong(idle, true);
}

void SysInfoModule::sampleWhileWatched()
{
    const std::unique_ptr<LookoutSources> sources = makeSources();
    // A fresh sampler lives a whole keep-alive span.
    keepAlive = nowMs();
    while (!quitting && !GX2Workers::stopping() && watched()) {
        LookoutParts parts;
        sources->sample(parts);
        parts.logs = naslog.logPool();
        publish(lookoutSnapshotOf(parts));
        if (!pause(cycleMs))
            return;
    }
}

bool SysInfoModule::pause(int ms) const
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (quitting)
            return false;
        const qint64 left = ms - timer.elapsed();
        if (left <= 0)
            return true;
        // In slices: only a quit of the daemon cuts sleepFor short, and the
        // module's end must be seen too.
        if (!GX2Workers::sleepFor(int(qMin<qint64>(left, kQuitPollMs))))
            return false;
    }
}

void SysInfoModule::publish(const QJsonObject& next)
{
    QJsonObject previous = next;
    {
        std::unique_lock<std::shared_mutex> write(snapshotLock);
        snapshot.swap(previous);
    }
    QHash<quint64, GX2Deferred> answering;
    {
        std::lock_guard<std::mutex> guard(waitLock);
        answering.swap(waiting);
    }
    const GX2RpcPacket answer = lookoutAnswer(next);
    for (const GX2Deferred& later : qAsConst(answering))
        later.answer(answer);
}

void SysInfoModule::answerWaiter(quint64 id)
{
    GX2Deferred later;
    {
        std::lock_guard<std::mutex> guard(waitLock);
        later = waiting.take(id);
    }
    // Gone from the list: the first snapshot answered it already.
    if (later.isValid())
        later.answer(lookoutAnswer(QJsonObject()));
}
