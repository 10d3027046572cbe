// Pause, resume and credential expiry with refresh, in the middle of each step of the job.
#include "svideo_test_support.h"

using namespace quorvane;
using namespace quorvane::test;

using SVideoControl = SVideoCloudTest;

namespace {

constexpr const char* kExpired = "InvalidSecurityToken.Expired";

}  // namespace

// Paused and resumed in each upload, then the clip's token expires and a refresh gets a new slot: the
// same multipart uploads are continued throughout.
TEST_F(SVideoControl, PauseAndResumeInEachUploadAndExpiryInTheClipContinueTheSameMultipartUploads) {
    // Slow parts, so each pause lands well inside its upload even on a loaded machine.
    for (int i = 0; i < 40; ++i) cloud.addFault(Fault::delay("UploadPart", 500));
    ASSERT_TRUE(start());

    // In the cover upload.
    ASSERT_TRUE(waitUntil([&] { return storedParts("image/") >= 1; }));
    client->pause();
    EXPECT_EQ(client->step(), 3);
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusPaused);
    ASSERT_TRUE(waitForCancelledRun());
    const std::string coverUpload = VODUploadEngineTestAccess::uploadId(*client->client());
    client->resume();
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusUploading);

    // In the clip upload.
    ASSERT_TRUE(waitUntil([&] { return client->step() == 7 && storedParts("sv/") >= 1; }));
    client->pause();
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusPaused);
    const std::string clipUpload = VODUploadEngineTestAccess::uploadId(*client->client());
    ASSERT_TRUE(waitForCancelledRun(2));
    cloud.clearFaults();
    cloud.addFault(Fault::error("UploadPart", 403, "SecurityTokenExpired", "The security token has expired."));
    client->resume();

    // The next clip part meets an expired token.
    ASSERT_TRUE(delegate->waitFor("expired"));
    EXPECT_EQ(client->step(), 7);
    EXPECT_EQ(VODUploadEngineTestAccess::uploadId(*client->client()), clipUpload);
    refresh();
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(delegate->count("expired"), 1);
    EXPECT_EQ(delegate->count("failed"), 0);
    EXPECT_EQ(cloud.videos().at(0).refreshCount, 1);
    EXPECT_TRUE(idle());
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 2u);  // one per file, none after a pause
    EXPECT_EQ(cloud.upload(coverUpload)->state, emulator::UploadState::Completed);
    EXPECT_EQ(cloud.upload(clipUpload)->state, emulator::UploadState::Completed);
    const auto video = cloud.videos().at(0);
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytesOf(clip));
    EXPECT_EQ(video.params.value("CoverURL", ""), cloud.images().at(0).imageURL);
}

// Paused while the video slot is requested: the reply is stored and the job stops at step 6, which
// resume does not continue from.
TEST_F(SVideoControl, PauseDuringASlotRequestStoresTheReplyAndParksTheJob) {
    cloud.addFault(Fault::delay("CreateUploadVideo", 1500));
    ASSERT_TRUE(start());
    ASSERT_TRUE(waitUntil([&] { return client->step() == 5; }));
    client->pause();
    ASSERT_TRUE(waitUntil([&] { return client->step() == 6; }));
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusPaused);
    client->resume();
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusUploading);
    EXPECT_EQ(client->step(), 6);
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);  // the cover's only
    EXPECT_EQ(cloud.videos().size(), 1u);
    EXPECT_EQ(delegate->count("result"), 0);
}

// An expired image slot waits for new credentials; an expired video slot (step 4) is asked for again
// by a resume.
TEST_F(SVideoControl, ExpiredSlotsAreAskedForAgainWithNewCredentialsOrOnResume) {
    cloud.addFault(Fault::error("CreateUploadImage", 403, kExpired, "Specified SecurityToken is expired."));
    cloud.addFault(Fault::error("CreateUploadVideo", 403, kExpired));
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("expired"));
    EXPECT_TRUE(idle());
    EXPECT_EQ(delegate->count("failed"), 0);
    refresh();
    ASSERT_TRUE(delegate->waitFor("expired", 2));
    EXPECT_EQ(client->step(), 4);
    client->pause();
    client->resume();
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(delegate->count("expired"), 2);
    EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 2u);
    EXPECT_EQ(cloud.images().size(), 1u);
    ASSERT_EQ(cloud.videos().size(), 1u);
    EXPECT_EQ(cloud.objectBytes(cloud.videos().at(0).bucket, cloud.videos().at(0).objectKey), bytesOf(clip));
}

TEST_F(SVideoControl, ExpiryDuringCoverUploadRefreshesAVideoSlotThatDoesNotExistYet) {
    // A refresh after the cover's expiry asks for the video slot by an id the job does not have yet;
    // the service refuses it and the job ends in one failure.
    cloud.addFaults({Fault::delay("UploadPart", 0),
                     Fault::error("UploadPart", 403, "SecurityTokenExpired", "The security token has expired.")});
    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("expired"));
    EXPECT_EQ(client->step(), 3);
    refresh();
    ASSERT_TRUE(delegate->waitFor("failed"));
    EXPECT_EQ(delegate->failures().at(0).first, "MissingParameter");
    EXPECT_TRUE(idle());
    EXPECT_EQ(cloud.videos().size(), 0u);
}
