// Cancel in each step of the job, and a failure in each step reaching the delegate once; after
// either, the client takes the next job.
#include "foundation/http_client.h"
#include "svideo_test_support.h"

using namespace quorvane;
using namespace quorvane::test;
using emulator::Fault;

using SVideoCancel = SVideoCloudTest;

namespace {

const std::string kCancelledCode = std::to_string(foundation::kHttpErrorCancelled);

}  // namespace

TEST_F(SVideoCancel, CancelDuringASlotRequestReportsTheCancelledRequestAndUploadsNothing) {
    cloud.addFault(Fault::delay("CreateUploadImage", 1500));
    ASSERT_TRUE(start());
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(delegate->waitFor("failed"));
    EXPECT_EQ(delegate->failures().at(0).first, kCancelledCode);
    EXPECT_TRUE(idle());

    cloud.addFault(Fault::delay("CreateUploadVideo", 1500));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return client->step() == 5; }));
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(delegate->waitFor("failed", 2));
    EXPECT_EQ(delegate->failures().at(1).first, kCancelledCode);
    EXPECT_TRUE(idle());
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);  // the second job's cover only
    EXPECT_EQ(delegate->count("result"), 0);
}

TEST_F(SVideoCancel, CancelDuringEitherUploadStopsItQuietlyAndTheNextJobRuns) {
    for (int i = 0; i < 6; ++i) cloud.addFault(Fault::delay("UploadPart", 400));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return storedParts() >= 1; }));
    ASSERT_EQ(client->step(), 3);
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(waitUntil([&] { return client->client()->state() == VODClientState::Finished; }));
    EXPECT_TRUE(client->client()->listFiles().empty());
    EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 0u);

    cloud.clearFaults();
    // The second job: cancelled once its clip is on its way.
    std::vector<Fault> script(coverParts(), Fault::delay("UploadPart", 0));
    for (int i = 0; i < 20; ++i) script.push_back(Fault::delay("UploadPart", 400));
    cloud.addFaults(script);
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return client->step() == 7 && storedParts("sv/") >= 1; }));
    client->cancel();
    EXPECT_TRUE(idle());
    ASSERT_TRUE(waitUntil([&] { return client->client()->state() == VODClientState::Finished; }));
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
    int step;  // the step the job is in when it fails
    std::string code, message;
};

void PrintTo(const StepFailure& failure, std::ostream* out) { *out << failure.name; }

class SVideoStepFailure : public SVideoCloudTest, public ::testing::WithParamInterface<StepFailure> {};

TEST_P(SVideoStepFailure, ReachesTheDelegateOnceAndTheNextJobRuns) {
    const StepFailure& failure = GetParam();
    switch (failure.step) {
    case 1:
        cloud.addFault(Fault::error("CreateUploadImage", 400, failure.code, failure.message));
        break;
    case 3:
        cloud.addFault(Fault::error("UploadPart", 400, failure.code, failure.message));
        break;
    case 5:
        cloud.addFault(Fault::error("CreateUploadVideo", 400, failure.code, failure.message));
        break;
    default: {
        std::vector<Fault> script(coverParts() + 1, Fault::delay("UploadPart", 0));
        script.push_back(Fault::error("UploadPart", 400, failure.code, failure.message));
        cloud.addFaults(script);
    }
    }
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
    ::testing::Values(StepFailure{"ImageSlot", 1, "InvalidParameter", "The image slot was refused."},
                      StepFailure{"CoverUpload", 3, "InvalidArgument", "The cover part was refused."},
                      StepFailure{"VideoSlot", 5, "InvalidParameter", "The video slot was refused."},
                      StepFailure{"ClipUpload", 7, "InvalidArgument", "The clip part was refused."}),
    [](const auto& info) { return std::string(info.param.name); });
