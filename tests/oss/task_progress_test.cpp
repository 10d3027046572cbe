#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "foundation/log.h"
#include "oss/oss_log.h"
#include "oss/oss_progress.h"
#include "oss/oss_task.h"

using namespace quorvane;
using namespace quorvane::oss;

TEST(OSSTask, ContinuationRunsOnceOnTheCompletingThreadAndChains) {
    auto task = OSSTask<int>::create();
    std::thread::id ranOn;
    int runs = 0;
    auto chained = task->continueWithBlock([&](const OSSTask<int>& t) {
        ++runs;
        ranOn = std::this_thread::get_id();
        EXPECT_EQ(*t.result(), 42);
    });
    std::thread::id producer;
    std::thread worker([&] {
        producer = std::this_thread::get_id();
        task->setResult(std::make_shared<int>(42));
        task->setError(Error("late", 1));  // ignored: the first outcome wins
    });
    chained->waitUntilFinished();
    worker.join();
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(ranOn, producer);
    EXPECT_FALSE(task->error());
    EXPECT_EQ(*chained->result(), 42);

    bool immediate = false;  // already finished: runs at once on the caller's thread
    task->continueWithBlock([&](const OSSTask<int>&) { immediate = std::this_thread::get_id() == ranOn; });
    EXPECT_FALSE(immediate);
    auto failed = OSSTask<int>::taskWithError(makeClientError(OSSClientErrorCodeTaskCancelled, "c"));
    EXPECT_TRUE(failed->isCancelled());
}

TEST(OSSProgress, NeverBackwardsNorPastTheTotalWhenAPartIsResent) {
    std::vector<std::int64_t> totals;
    std::int64_t sumOfDeltas = 0;
    OSSProgressTracker tracker(
        [&](std::int64_t now, std::int64_t total, std::int64_t expected) {
            EXPECT_EQ(expected, 1000);
            EXPECT_GT(now, 0);
            sumOfDeltas += now;
            totals.push_back(total);
        },
        1000, 200);
    tracker.update(1, 300);
    tracker.update(2, 100);
    tracker.update(1, 0);    // part 1 sent again from its start
    tracker.update(1, 250);  // still below what was shown: nothing reported
    tracker.finish(1, 400);
    tracker.finish(2, 400);
    tracker.update(3, 5000);  // more than expected is capped
    ASSERT_FALSE(totals.empty());
    for (std::size_t i = 1; i < totals.size(); ++i) EXPECT_GT(totals[i], totals[i - 1]);
    EXPECT_EQ(totals.back(), 1000);
    EXPECT_EQ(sumOfDeltas, 800);
}

TEST(OSSLog, LinesOnlyWhenSwitchedOn) {
    foundation::LogCapture capture;
    OSSLog::disableLog();
    OSSLog::logDebug("hidden");
    OSSLog::enableLog();
    OSSLog::logDebug("start called.");
    OSSLog::logError("oss client init success!");
    OSSLog::disableLog();
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{"[Debug]: start called.", "[Error]: oss client init success!"}));
}
