// The retry policy of the upload steps driven by a scheduler that only records, and the error classes
// it acts on.
#include <gtest/gtest.h>

#include <vector>

#include "VODUpload/src/VODUploadErrorClass.h"
#include "VODUpload/src/VODUploadProgress.h"
#include "VODUpload/src/VODUploadRetryPolicy.h"
#include "engine_test_support.h"
#include "foundation/value.h"
#include "oss/oss_error.h"

using namespace quorvane;
using namespace std::chrono_literals;

namespace {

struct RecordingScheduler {
    std::vector<std::chrono::milliseconds> waits;
    std::vector<std::function<void()>> pending;
    VODUploadRetryPolicy::Scheduler scheduler() {
        return [this](std::chrono::milliseconds wait, std::function<void()> f) {
            waits.push_back(wait);
            pending.push_back(std::move(f));
        };
    }
};

Error serverError(int status, const std::string& code) {
    return Error(oss::kOSSServerErrorDomain, -status, code, Value{{"Code", code}});
}

}  // namespace

TEST(UploadRetryPolicy, CountsUpToTheBoundThenGivesUpUntilCleared) {
    RecordingScheduler clock;
    VODUploadRetryPolicy policy(clock.scheduler());
    EXPECT_EQ(policy.wait(), 2000ms);
    policy.setWait(-5ms);
    EXPECT_EQ(policy.wait(), 0ms);
    policy.setWait(250ms);

    EXPECT_FALSE(policy.retrying());
    EXPECT_EQ(policy.decide(2), VODUploadRetryPolicy::Decision::Retry);
    EXPECT_EQ(policy.decide(2), VODUploadRetryPolicy::Decision::Retry);
    EXPECT_EQ(policy.count(), 2);
    EXPECT_EQ(policy.decide(2), VODUploadRetryPolicy::Decision::GiveUp);
    EXPECT_EQ(policy.count(), 2);  // the caller clears it once the file failed
    EXPECT_EQ(policy.decide(3), VODUploadRetryPolicy::Decision::Retry);  // a bound raised meanwhile counts
    policy.reset();
    EXPECT_EQ(policy.decide(2), VODUploadRetryPolicy::Decision::Retry);

    int ran = 0;
    policy.schedule([&] { ++ran; });
    ASSERT_EQ(clock.waits, std::vector<std::chrono::milliseconds>{250ms});
    EXPECT_EQ(ran, 0);  // nothing runs before the scheduler says the wait is over
    clock.pending.front()();
    EXPECT_EQ(ran, 1);
}

// Both sides read as unsigned: a negative bound is no bound, a zero bound gives up at once.
TEST(UploadRetryPolicy, BoundsCompareAsUnsigned) {
    RecordingScheduler clock;
    VODUploadRetryPolicy policy(clock.scheduler());
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(policy.decide(-1), VODUploadRetryPolicy::Decision::Retry);
    policy.reset();
    EXPECT_EQ(policy.decide(0), VODUploadRetryPolicy::Decision::GiveUp);
    policy.setCount(-3);  // set by a caller: far above any bound once unsigned
    EXPECT_EQ(policy.decide(5), VODUploadRetryPolicy::Decision::GiveUp);
}

// The class as the number shouldRetry answers, for the error and the client's state when it arrived.
TEST(UploadErrorClasses, FollowTheCodeAndTheClientState) {
    const Error cancelled(oss::kOSSClientErrorDomain, 5, "cancelled");
    const Error network(oss::kOSSClientErrorDomain, 6, "network");
    const struct {
        Error error;
        VODClientState state;
        int expected;
    } cases[] = {
        {serverError(403, "SecurityTokenExpired"), VODClientState::Started, 2},
        {serverError(403, "InvalidAccessKeyId"), VODClientState::Started, 2},
        {serverError(403, "SignatureDoesNotMatch"), VODClientState::Started, 0},
        {Error(oss::kOSSServerErrorDomain, -403, "refused"), VODClientState::Started, 0},  // no details
        {network, VODClientState::Started, 1},
        {network, VODClientState::Paused, 1},
        {serverError(500, "InternalError"), VODClientState::Started, 0},  // -500 is not retried
        {serverError(501, "NotImplemented"), VODClientState::Started, 1},
        {serverError(502, "BadGateway"), VODClientState::Started, 1},
        {serverError(404, "NoSuchUpload"), VODClientState::Started, 0},
        {Error(oss::kOSSClientErrorDomain, 3, "invalid"), VODClientState::Started, 0},
        {cancelled, VODClientState::Idle, 3},  // cancelled by something else: the next file
        {cancelled, VODClientState::Started, 3},
        {cancelled, VODClientState::Paused, 4},
        {cancelled, VODClientState::Stopped, 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error.description + " in state " + std::to_string(static_cast<int>(c.state)));
        EXPECT_EQ(static_cast<int>(classify(c.error, c.state)), c.expected);
    }
    // The engine answers for the state it is in.
    auto client = VODUploadClient::create();
    EXPECT_EQ(engineOf(*client).shouldRetry(cancelled), 3);  // Idle
    VODUploadClientTestAccess::setState(*client, VODClientState::Paused);
    EXPECT_EQ(engineOf(*client).shouldRetry(cancelled), 4);
    VODUploadClientTestAccess::setState(*client, VODClientState::Stopped);
    EXPECT_EQ(engineOf(*client).shouldRetry(cancelled), 4);
    VODUploadClientTestAccess::setState(*client, VODClientState::Started);
    EXPECT_EQ(engineOf(*client).shouldRetry(cancelled), 3);
}

// A file of 250 bytes in parts of 100: the events each progress call owes, as the service counts them.
TEST(UploadProgressSteps, PartEventsFollowThePartReachedAndTheRetry) {
    struct Call {
        std::int64_t bytes, total;
        bool retrying;
        int part;
        bool done, begun;
        float ratio;
    };
    const Call calls[] = {
        {0, 0, false, 0, false, true, 0.0f},       // the upload began: nothing sent, a part begun
        {50, 50, false, 0, false, false, 0.2f},    // within the first part
        {60, 110, false, 1, true, true, 0.24f},    // into the second part: one done, one begun
        {40, 150, true, 1, false, false, 0.16f},   // a retry is owed: no part counts as done
        {100, 250, true, 2, false, true, 0.4f},    // moved on while retrying: begun only
        {0, 250, false, 2, false, false, 0.0f},    // no bytes: nothing done
    };
    VODUploadProgress progress(100);
    for (const auto& call : calls) {
        const auto step = progress.advance(call.bytes, call.total, 250, call.retrying);
        EXPECT_EQ(step.partNumber, call.part) << call.total;
        EXPECT_EQ(step.partDone, call.done) << call.total;
        EXPECT_EQ(step.partBegun, call.begun) << call.total;
        EXPECT_FLOAT_EQ(step.ratio, call.ratio) << call.total;
    }
    // Without a part size everything is part 0, and the end of the file is the one part done.
    VODUploadProgress whole(0);
    EXPECT_FALSE(whole.advance(10, 10, 20, false).partDone);
    const auto last = whole.advance(10, 20, 20, false);
    EXPECT_TRUE(last.partDone);
    EXPECT_FALSE(last.partBegun);
    EXPECT_FLOAT_EQ(whole.advance(5, 5, 0, false).ratio, 0.0f);  // an empty file divides by nothing
}
