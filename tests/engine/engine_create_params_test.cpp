// The optional parameters of a create-upload-video request as the service receives them: the
// template group against "TranscodeMode", the workflow, and the bitrate in the user data.
#include <cstdio>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VodInfo.h"
#include "engine_cloud_support.h"
#include "foundation/value.h"
#include "support/media_files.h"

using namespace quorvane;
using namespace quorvane::test;

class CreateParams : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        ASSERT_TRUE(initSts(client));
        clip = makeFile("clip.mp4", "");
        ASSERT_TRUE(writeClip(clip, ClipSpec{.bitRate = 1500000}));
        info = std::make_shared<VodInfo>();
        info->title = "params";
    }
    void TearDown() override {
        VODObjectCache::sharedCache().clearObjectWithPath(clip);
        EngineCloudTest::TearDown();
    }
    // Uploads `clip` and returns the parameters its create request carried.
    Value createParams() {
        EXPECT_TRUE(client->addFile(clip, info));
        EXPECT_TRUE(client->start());
        EXPECT_TRUE(listener.waitFor("finish"));
        const auto videos = cloud.videos();
        return videos.empty() ? Value() : videos.back().params;
    }
    std::string clip;
    std::shared_ptr<VodInfo> info;
};

TEST_F(CreateParams, TemplateGroupTakesThePlaceOfNoTranscodeAndTheWorkflowIsSent) {
    client->setTranscode(false);
    client->setWorkflowId(std::string("wf-9"));
    info->templateGroupId = "tg-1";
    Value params = createParams();
    EXPECT_EQ(params.value("TemplateGroupId", ""), "tg-1");
    EXPECT_FALSE(params.contains("TranscodeMode"));
    EXPECT_EQ(params.value("WorkflowId", ""), "wf-9");
}

TEST_F(CreateParams, EmptyTemplateGroupOrWorkflowCountsAsNone) {
    client->setTranscode(false);
    client->setWorkflowId(std::string(""));
    info->templateGroupId = "";
    Value params = createParams();
    EXPECT_EQ(params.value("TranscodeMode", ""), "NoTranscode");
    EXPECT_FALSE(params.contains("WorkflowId"));
}

TEST_F(CreateParams, BitrateIsSentInKilobitsOf1024) {
    Value params = createParams();
    auto userData = foundation::parseJson(params.value("UserData", ""));
    ASSERT_TRUE(userData);
    const double bitsPerSecond = AVCVAssetInfo::AVCVBitrate(clip);
    ASSERT_GT(bitsPerSecond, 0);
    char expected[32];
    std::snprintf(expected, sizeof expected, "%.2f", bitsPerSecond / 1024);
    EXPECT_EQ(userData->value("Bitrate", ""), expected);
    // Not thousands: the two differ for any real bitrate.
    std::snprintf(expected, sizeof expected, "%.2f", bitsPerSecond / 1000);
    EXPECT_NE(userData->value("Bitrate", ""), expected);
}
