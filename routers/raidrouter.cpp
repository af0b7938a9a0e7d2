#include "routers/raidrouter.h"

#include "gx2/gx2errors.h"
#include "gx2/gx2utils.h"
#include "gx2/gx2workers.h"
#include "lnx2/lnx2process.h"

#include <QElapsedTimer>

#include <limits>
#include <mutex>

// The initial RAM disk refresh: at most one run at a time and at most one
// queued behind it, since a run started later covers every change made
// before it.
struct RaidUpdates
{
    std::mutex lock;
    bool running = false;
    bool pending = false;

    bool busy()
    {
        std::lock_guard<std::mutex> guard(lock);
        return running || pending;
    }
};

namespace {

const char kUpdateProgram[] = "/usr/sbin/update-initramfs";
constexpr int kUpdateStartMs = 10000;
constexpr int kUpdateFinishMs = 99999;
constexpr int kDefaultWaitMs = 30000;
constexpr int kMaxWaitMs = 300000;
constexpr int kPollMs = 50;

// Clamped to the int range first: 2^32 + 100 must not come out as 100.
int clampedInt(const QJsonValue& value)
{
    return int(qBound<qint64>(std::numeric_limits<int>::min(), toInt64(value),
                              std::numeric_limits<int>::max()));
}

void runUpdates(const std::shared_ptr<RaidUpdates>& updates)
{
    for (;;) {
        // A failed refresh is not reported: the next request simply runs it again.
        procRun(QString::fromLatin1(kUpdateProgram), {QStringLiteral("-u")}, kUpdateStartMs,
                kUpdateFinishMs);
        const bool quitting = GX2Workers::stopping();
        std::lock_guard<std::mutex> guard(updates->lock);
        if (updates->pending && !quitting) {
            updates->pending = false;
            continue;
        }
        updates->pending = false;
        updates->running = false;
        return;
    }
}

// Polls until the refresh is idle, the limit passes or the daemon quits.
int waitIdle(RaidUpdates& updates, int limitMs)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (!updates.busy())
            return kErrOk;
        const qint64 left = limitMs - timer.elapsed();
        if (left <= 0 || !GX2Workers::sleepFor(int(qMin<qint64>(left, kPollMs))))
            return updates.busy() ? kErrNoAnswer : kErrOk;
    }
}

} // namespace

RaidRouter::RaidRouter(QObject* parent)
    : GX2TodoRouter(parent), updates(std::make_shared<RaidUpdates>())
{
}

RaidRouter::~RaidRouter() = default;

int RaidRouter::waitLimitMs(const QJsonValue& timeout)
{
    const int ms = clampedInt(timeout);
    if (ms <= 0)
        return kDefaultWaitMs;
    return qMin(ms, kMaxWaitMs);
}

void RaidRouter::raid_writeconfig(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    {
        // Busy from this moment, so that a waiter sent right after never sees idle.
        std::lock_guard<std::mutex> guard(updates->lock);
        if (updates->running) {
            updates->pending = true;
            return retObject->setErr(kErrOk);
        }
        updates->running = true;
    }
    const std::shared_ptr<RaidUpdates> shared = updates;
    if (!GX2Workers::start(QStringLiteral("initramfs update"), [shared] { runUpdates(shared); })) {
        std::lock_guard<std::mutex> guard(updates->lock);
        updates->running = false;
        updates->pending = false;
    }
    retObject->setErr(kErrOk);
}

void RaidRouter::raid_writeconfig_waitfor(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    if (!updates->busy())
        return retObject->setErr(kErrBusy);
    const int limitMs = waitLimitMs(cmdObject.param(QStringLiteral("timeout")));
    // The wait may take minutes: the loop goes on serving other connections.
    const GX2Deferred later = retObject->answerLater();
    const std::shared_ptr<RaidUpdates> shared = updates;
    if (!GX2Workers::start(QStringLiteral("initramfs wait"), [shared, limitMs, later] {
            later.answer(GX2RpcPacket::ofErr(waitIdle(*shared, limitMs)));
        }))
        later.answer(GX2RpcPacket::ofErr(kErrNoAnswer));
}

void RaidRouter::raid_limit_speeds(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    Q_UNUSED(cmdObject)
    int max = 0;
    int min = 0;
    raid.limitSpeeds(max, min);
    retObject->setResults({{QStringLiteral("max"), max}, {QStringLiteral("min"), min}});
}

void RaidRouter::raid_limit_speeds_change(GX2RpcPacket* retObject, GX2RpcPacket cmdObject)
{
    const int max = clampedInt(cmdObject.param(QStringLiteral("max")));
    const int min = clampedInt(cmdObject.param(QStringLiteral("min")));
    retObject->setErr(raid.setLimitSpeeds(max, min) ? kErrOk : kErrWriteFailed);
}
