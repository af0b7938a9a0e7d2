#pragma once

#include <QCoreApplication>

#include <atomic>
#include <thread>

// Runs a blocking client call on a worker thread while this thread's event
// loop serves it (servers under test live on the test's own thread).
template <typename Call> auto offLoop(Call call) -> decltype(call())
{
    std::atomic<bool> done{false};
    decltype(call()) value{};
    std::thread worker([&] {
        value = call();
        done = true;
    });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    worker.join();
    return value;
}
