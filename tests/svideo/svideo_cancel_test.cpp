// Cancel in each step of the job, with the next job started at once; a failure in each step
// reaching the delegate once; after either, the client takes the next job.
#include <algorithm>
#include <atomic>

#include "svideo_test_support.h"

using namespace quorvane;
using namespace quorvane::test;

using SVideoCancel = SVideoCloudTest;

struct CancelPoint {
    const char* name;
    std::string op;  // the request held in flight when the job is cancelled
    int step;        // the step the job is in then
};

void PrintTo(const CancelPoint& point, std::ostream* out) { *out << point.name; }

class SVideoRestart : public SVideoCloudTest, public ::testing::WithParamInterface<CancelPoint> {};

// The cancelled job's request ends around the time the next job begins; whatever it brings (the
// cancellation, a reply) belongs to the cancelled job and must not touch the new one.
TEST_P(SVideoRestart, NewJobStartedRightAfterACancelIsTheOnlyOneHeardFrom) {
    const CancelPoint& point = GetParam();
    constexpr int kHoldMs = 1500;
    // Each job's image slot is a separate request: the first job's is held only when it is the
    // cancel point, the second job's always, so there is a window while the second job waits.
    cloud.addFaults({Fault::delay("CreateUploadImage", point.op == "CreateUploadImage" ? kHoldMs : 0),
                     Fault::delay("CreateUploadImage", kHoldMs)});
    if (point.op != "CreateUploadImage") cloud.addFault(Fault::delay(point.op, kHoldMs));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return cloud.firedCount(point.op) == 1 && client->step() == point.step; }));
    const std::size_t progressBefore = delegate->progress().size();
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(start());

    // Until the second job's slot arrives, the cancelled request ends and is dropped; a third start
    // stays refused all along.
    bool admitted = false;
    ASSERT_TRUE(waitUntil([&] {
        admitted = admitted || start();
        return admitted || client->step() >= 2;
    }));
    EXPECT_FALSE(admitted);

    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_TRUE(idle());
    // The cancelled request's own end is heard only when it came before the new job began; nothing
    // else of the old job ever is.
    const auto failures = delegate->failures();
    EXPECT_LE(failures.size(), 1u);
    for (const auto& failure : failures) EXPECT_EQ(failure.first, "-999");
    EXPECT_EQ(delegate->count("expired"), 0);
    ASSERT_EQ(delegate->successes().size(), 1u);
    ASSERT_EQ(delegate->results().size(), 1u);
    const auto heard = delegate->results()[0];
    EXPECT_EQ(delegate->successes()[0].vid, heard.videoId);
    EXPECT_EQ(delegate->successes()[0].imageUrl, heard.imageUrl);

    // The video and the cover the delegate names are the second job's, both stored whole.
    const auto video = videoWithId(heard.videoId);
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytesOf(clip));
    EXPECT_EQ(video.params.value("CoverURL", ""), heard.imageUrl.value_or("-"));
    const auto images = cloud.images();
    const auto image =
        std::find_if(images.begin(), images.end(), [&](const auto& i) { return i.imageURL == heard.imageUrl; });
    ASSERT_NE(image, images.end());
    EXPECT_EQ(cloud.objectBytes(image->bucket, image->objectKey), bytesOf(cover));

    // From the cancel on, one bar: the second job's, never backwards, ending full.
    const auto progress = delegate->progress();
    ASSERT_GT(progress.size(), progressBefore);
    for (std::size_t i = progressBefore + 1; i < progress.size(); ++i) {
        EXPECT_GE(progress[i].first, progress[i - 1].first);
    }
    EXPECT_EQ(progress.back().first, coverSize() + clipSize());
}

INSTANTIATE_TEST_SUITE_P(EachRequest, SVideoRestart,
                         ::testing::Values(CancelPoint{"ImageSlot", "CreateUploadImage", 1},
                                           CancelPoint{"CoverPart", "UploadPart", 3},
                                           CancelPoint{"VideoSlot", "CreateUploadVideo", 5}),
                         [](const auto& info) { return std::string(info.param.name); });

// With no job begun since, the cancelled request's own end (the transport's cancellation) is still
// the host's to hear; nothing of the job goes on.
TEST_F(SVideoCancel, CancelDuringASlotRequestReportsTheCancelledRequestAndUploadsNothing) {
    cloud.addFault(Fault::delay("CreateUploadVideo", 1500));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return client->step() == 5; }));
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(delegate->waitFor("failed"));
    EXPECT_EQ(delegate->failures().at(0).first, "-999");
    EXPECT_TRUE(idle());
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);  // the cover's only
    EXPECT_EQ(delegate->count("result"), 0);
}

// Cancelled from the delegate's first progress report of the clip: the job is over when cancel
// returns, the engine drops the upload, and nothing more of the job is heard.
TEST_F(SVideoCancel, CancelFromAProgressCallbackStopsTheClipQuietlyAndTheNextJobRuns) {
    std::vector<Fault> script(coverParts(), Fault::delay("UploadPart", 0));
    for (int i = 0; i < 20; ++i) script.push_back(Fault::delay("UploadPart", 400));
    cloud.addFaults(script);
    std::atomic<bool> cancelled = false, idleInside = false, returned = false;
    delegate->onEvent = [&](const std::string& event) {
        if (event != "progress" || cancelled || client->step() != 7) return;
        cancelled = true;
        client->cancel();
        idleInside = idle();
        returned = true;  // the client looks idle from outside before this callback has ended
    };
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return returned && client->client()->listFiles().empty() && idle(); }));
    ASSERT_TRUE(waitUntil([&] { return client->client()->state() == VODClientState::Finished; }));
    EXPECT_TRUE(idleInside);
    EXPECT_EQ(delegate->count("failed"), 0);
    EXPECT_EQ(delegate->count("result"), 0);
    const auto video = cloud.videos().at(0);
    EXPECT_FALSE(cloud.object(video.bucket, video.objectKey));

    cloud.clearFaults();
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(delegate->count("failed"), 0);
}

struct StepFailure {
    const char* name;
    std::string op;  // the request refused
    bool inClip;     // an UploadPart of the clip (after the cover's parts and the clip's first), not the cover
    std::string code, message;
};

void PrintTo(const StepFailure& failure, std::ostream* out) { *out << failure.name; }

class SVideoStepFailure : public SVideoCloudTest, public ::testing::WithParamInterface<StepFailure> {};

TEST_P(SVideoStepFailure, ReachesTheDelegateOnceAndTheNextJobRuns) {
    const StepFailure& failure = GetParam();
    std::vector<Fault> script(failure.inClip ? coverParts() + 1 : 0, Fault::delay("UploadPart", 0));
    script.push_back(Fault::error(failure.op, 400, failure.code, failure.message));
    cloud.addFaults(script);
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("failed"));
    EXPECT_EQ(delegate->failures().at(0), std::make_pair(failure.code, failure.message));
    EXPECT_TRUE(idle());
    EXPECT_EQ(delegate->count("result"), 0);

    // The engine halts on a failed file; the next job must still go through.
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(delegate->count("failed"), 1);
    const auto video = cloud.videos().back();
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytesOf(clip));
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, SVideoStepFailure,
    ::testing::Values(
        StepFailure{"ImageSlot", "CreateUploadImage", false, "InvalidParameter", "The image slot was refused."},
        StepFailure{"CoverUpload", "UploadPart", false, "InvalidArgument", "The cover part was refused."},
        StepFailure{"VideoSlot", "CreateUploadVideo", false, "InvalidParameter", "The video slot was refused."},
        StepFailure{"ClipUpload", "UploadPart", true, "InvalidArgument", "The clip part was refused."}),
    [](const auto& info) { return std::string(info.param.name); });
