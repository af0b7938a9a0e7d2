#include "gx2/gx2workers.h"

#include <QMap>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

struct Worker
{
    QString name;
    std::thread thread;
    bool finished = false;
};

struct Registry
{
    std::mutex lock;
    std::condition_variable changed;
    QMap<quint64, Worker*> workers;
    quint64 nextId = 1;
    bool stopping = false;
};

// Never destroyed: an abandoned thread may still end after main has returned.
Registry& registry()
{
    static auto* r = new Registry;
    return *r;
}

void finish(quint64 id)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    // A worker given up by joinAll is no longer listed.
    if (Worker* w = r.workers.value(id))
        w->finished = true;
    r.changed.notify_all();
}

// Joins and forgets the finished workers; the caller holds the lock.
void reapFinished(Registry& r)
{
    for (auto it = r.workers.begin(); it != r.workers.end();) {
        if (!it.value()->finished) {
            ++it;
            continue;
        }
        it.value()->thread.join();
        delete it.value();
        it = r.workers.erase(it);
    }
}

} // namespace

namespace GX2Workers {

bool start(const QString& name, std::function<void()> work)
{
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    if (r.stopping)
        return false;
    reapFinished(r);
    const quint64 id = r.nextId++;
    auto* worker = new Worker{name, std::thread(), false};
    r.workers.insert(id, worker);
    // The work is destroyed before the thread reports its end, so nothing it
    // captured outlives the join.
    worker->thread = std::thread([id, job = std::move(work)]() mutable {
        job();
        job = nullptr;
        finish(id);
    });
    return true;
}

bool stopping()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    return r.stopping;
}

void requestStop()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    r.stopping = true;
    r.changed.notify_all();
}

bool sleepFor(int ms)
{
    Registry& r = registry();
    std::unique_lock<std::mutex> guard(r.lock);
    return !r.changed.wait_for(guard, std::chrono::milliseconds(ms), [&r] { return r.stopping; });
}

QStringList joinAll(int limitMs)
{
    Registry& r = registry();
    std::unique_lock<std::mutex> guard(r.lock);
    const auto allDone = [&r] {
        for (const Worker* w : qAsConst(r.workers)) {
            if (!w->finished)
                return false;
        }
        return true;
    };
    r.changed.wait_for(guard, std::chrono::milliseconds(limitMs), allDone);
    reapFinished(r);
    QStringList left;
    for (Worker* w : qAsConst(r.workers)) {
        left << w->name;
        w->thread.detach();
    }
    // What was left behind is not waited for again; the process ends soon.
    qDeleteAll(r.workers);
    r.workers.clear();
    return left;
}

void resetForTests()
{
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    reapFinished(r);
    r.stopping = false;
}

} // namespace GX2Workers
