#pragma once

#include <condition_variable>
#include <mutex>

// Jobs handed to other threads that still use their owner: the owner's
// destructor waits until none is left.
class GX2InFlight
{
public:
    void begin()
    {
        std::lock_guard<std::mutex> guard(lock);
        ++count;
    }
    void end()
    {
        std::lock_guard<std::mutex> guard(lock);
        --count;
        none.notify_all();
    }
    void waitForNone()
    {
        std::unique_lock<std::mutex> guard(lock);
        none.wait(guard, [this] { return count == 0; });
    }

private:
    std::mutex lock;
    std::condition_variable none;
    int count = 0;
};
