#include "gx2/gx2workers.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// One test: the registry is the process's, and a shutdown is final until reset.
TEST(Gx2Workers, QuitWaitsForWorkersAndNamesThoseLeftBehind)
{
    std::atomic<bool> release{false};
    std::atomic<bool> exited{false};
    std::atomic<int> done{0};
    ASSERT_TRUE(GX2Workers::start(QStringLiteral("quick"), [&] { ++done; }));
    ASSERT_TRUE(GX2Workers::start(QStringLiteral("sleeper"), [&] {
        GX2Workers::sleepFor(60000); // cut short by the quit
        ++done;
    }));
    ASSERT_TRUE(GX2Workers::start(QStringLiteral("stuck"), [&] {
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        exited = true;
    }));

    QElapsedTimer timer;
    timer.start();
    GX2Workers::requestStop();
    EXPECT_TRUE(GX2Workers::stopping());
    EXPECT_FALSE(GX2Workers::start(QStringLiteral("late"), [&] { ++done; }));
    EXPECT_EQ(GX2Workers::joinAll(300), QStringList{QStringLiteral("stuck")});
    EXPECT_LT(timer.elapsed(), 30000);
    EXPECT_EQ(done, 2);

    // The one left behind may still end; it must find nothing gone.
    release = true;
    while (!exited)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    GX2Workers::resetForTests();
    EXPECT_FALSE(GX2Workers::stopping());
    EXPECT_TRUE(GX2Workers::sleepFor(1));
}
