#include "app/workthread.h"

#include "gx2/gx2workers.h"

#include <QElapsedTimer>

#include <chrono>
#include <thread>

namespace {
constexpr int kStopPollMs = 25;
}

WorkThread::WorkThread(int checkPeriodMs, int lookPeriodMs, QObject* parent)
    : QObject(parent), checkPeriodMs(checkPeriodMs), lookPeriodMs(lookPeriodMs),
      housekeeper(HousekeepingConfig::workThread())
{
}

// The detached loop uses this object: it must have ended first.
WorkThread::~WorkThread()
{
    stop();
}

void WorkThread::start()
{
    if (running.exchange(true))
        return;
    // Cleared here, not in the thread, so a stop() right after start() holds.
    stopping = false;
    if (!GX2Workers::start(QStringLiteral("work thread"), [this] { loop(); }))
        running = false; // the daemon is quitting
}

void WorkThread::stop()
{
    stopping = true;
    while (running.load())
        std::this_thread::sleep_for(std::chrono::milliseconds(kStopPollMs));
}

void WorkThread::run()
{
    running = true;
    stopping = false;
    loop();
}

void WorkThread::loop()
{
    QElapsedTimer sinceCheck;
    sinceCheck.start();
    while (!stopping.load() && !GX2Workers::stopping()) {
        if (sinceCheck.elapsed() >= checkPeriodMs) {
            if (housekeeper.needsCleaning(diskFreeRate()))
                freeDiskOccupy();
            sinceCheck.restart();
        }
        GX2Workers::sleepFor(lookPeriodMs);
    }
    running = false;
}

int WorkThread::diskFreeRate()
{
    return housekeeper.rootUse();
}

void WorkThread::freeDiskOccupy()
{
    housekeeper.clean();
}
