#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "foundation/dispatch.h"

using namespace quorvane::foundation;

namespace {
constexpr auto kWait = std::chrono::seconds(30);
}

TEST(Dispatch, MainTasksRunOnTheThreadRunningTheLoop) {
    std::atomic<int> ran{0};
    std::atomic<bool> allOnMain{true};
    for (int i = 0; i < 20; ++i)
        dispatch::global().async([&] {
            dispatch::main().async([&] {
                if (!isMainThread()) allOnMain = false;
                ++ran;
            });
        });
    ASSERT_TRUE(MainLoop::instance().runUntil([&] { return ran == 20; }, kWait));
    EXPECT_TRUE(allOnMain);
    EXPECT_TRUE(isMainThread());
    std::atomic<bool> poolIsMain{true};
    Semaphore done;
    dispatch::global().async([&] {
        poolIsMain = isMainThread();
        done.signal();
    });
    ASSERT_TRUE(done.waitFor(kWait));
    EXPECT_FALSE(poolIsMain);

    // A condition that never holds ends the run in failure, and the loop still serves work afterwards.
    EXPECT_FALSE(MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(30)));
    bool later = false;
    dispatch::main().async([&] { later = true; });
    EXPECT_TRUE(MainLoop::instance().runUntil([&] { return later; }, kWait));
}

TEST(Queue, SerialKeepsOrderAndNeverOverlapsEvenWhenDestroyedEarly) {
    constexpr int kTasks = 2000;
    std::vector<int> seen;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    Semaphore finished;
    {
        SerialQueue queue("com.brenlow.platform");
        for (int i = 0; i < kTasks; ++i)
            queue.async([&, i] {
                if (inside.fetch_add(1) != 0) overlapped = true;
                seen.push_back(i);
                inside.fetch_sub(1);
                if (i == kTasks - 1) finished.signal();
            });
    }  // gone while tasks are still queued
    ASSERT_TRUE(finished.waitFor(kWait));
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(kTasks));
    for (int i = 0; i < kTasks; ++i) ASSERT_EQ(seen[i], i);
}

TEST(Queue, ConcurrentTasksRunSideBySideWhileOthersBlock) {
    ConcurrentQueue queue("my.concurrent.queue");
    // Shared with the tasks: they wake after the test has returned (or failed an assertion), and
    // must not wake up on semaphores that left with this frame.
    struct Gates {
        Semaphore release, blocked, freeRan;
    };
    auto gates = std::make_shared<Gates>();
    for (int i = 0; i < 3; ++i)
        queue.async([gates] {
            gates->blocked.signal();
            gates->release.waitFor(kWait);
        });
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(gates->blocked.waitFor(kWait));
    dispatch::global().async([gates] { gates->freeRan.signal(); });
    EXPECT_TRUE(gates->freeRan.waitFor(kWait));  // three blocked tasks stall nothing else
    for (int i = 0; i < 3; ++i) gates->release.signal();
}

TEST(Queue, AfterFiresOnceOnTheGivenQueue) {
    std::atomic<int> fired{0};
    std::atomic<bool> onMain{false};
    bool later = false;
    after(0.02, dispatch::main(), [&] {
        onMain = isMainThread();
        ++fired;
    });
    after(0.2, dispatch::main(), [&] { later = true; });
    ASSERT_TRUE(MainLoop::instance().runUntil([&] { return later; }, kWait));
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(onMain);

    auto serial = std::make_shared<SerialQueue>("s");
    Semaphore done;
    after(0.01, serial, [&] { done.signal(); });
    serial.reset();  // the pending task keeps the queue alive
    EXPECT_TRUE(done.waitFor(kWait));
}

TEST(Queue, SyncResultReturnsWhatTheTaskReturnedFromAnyThread) {
    SerialQueue queue("sync.result");
    // From outside: the task runs on the queue, and a move-only result comes back.
    auto fromOutside = queue.syncResult([&] { return std::make_unique<bool>(queue.isCurrent()); });
    ASSERT_TRUE(fromOutside);
    EXPECT_TRUE(*fromOutside);
    // From a task of the queue: in place, where waiting for the queue would never return.
    std::atomic<int> nested{0};
    Semaphore done;
    queue.async([&] {
        nested = queue.syncResult([] { return 7; });
        done.signal();
    });
    ASSERT_TRUE(done.waitFor(kWait));
    EXPECT_EQ(nested, 7);
    // A task that throws yields an empty result, and the queue goes on.
    EXPECT_EQ(queue.syncResult([]() -> std::string { throw std::runtime_error("step failed"); }), "");
    int ran = 0;
    queue.syncResult([&] { ++ran; });
    EXPECT_EQ(ran, 1);
}

// A waiter that frees the semaphore as soon as wait() returns must not pull it from under the
// signalling thread. Under AddressSanitizer a signal that touched it after unlocking shows as a
// use after free in some of these rounds.
TEST(Queue, SemaphoreCountsSignalsTimesOutAndMayGoAsSoonAsItsWaiterReturns) {
    Semaphore s(1);
    EXPECT_TRUE(s.waitFor(std::chrono::milliseconds(0)));
    EXPECT_FALSE(s.waitFor(std::chrono::milliseconds(10)));
    for (int round = 0; round < 2000; ++round) {
        auto* semaphore = new Semaphore(0);
        std::thread signaller([semaphore] { semaphore->signal(); });
        semaphore->wait();
        delete semaphore;
        signaller.join();
    }
}
