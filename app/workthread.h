#pragma once

#include "app/housekeeping.h"

#include <QObject>

#include <atomic>

// The housekeeping job as a thread object of its own, with WorkThread's
// constants. The application runs its slimming loop instead and never
// creates one.
class WorkThread : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(WorkThread)

public:
    static constexpr int kCheckPeriodMs = 600000;
    static constexpr int kLookPeriodMs = 60000;

    explicit WorkThread(int checkPeriodMs = kCheckPeriodMs, int lookPeriodMs = kLookPeriodMs,
                        QObject* parent = nullptr);
    ~WorkThread() override;

    // A detached thread on the loop, unless one is running.
    void start();
    // Waits until the loop has seen the flag: up to one look period.
    void stop();
    void run();
    bool isRunning() const { return running.load(); }

    int diskFreeRate();
    void freeDiskOccupy();

signals:
    void doSmbAudit();

private:
    void loop();

    const int checkPeriodMs;
    const int lookPeriodMs;
    const Housekeeping housekeeper;
    std::atomic<bool> running{false};
    std::atomic<bool> stopping{false};
};
