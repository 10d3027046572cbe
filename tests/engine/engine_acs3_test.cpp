// An engine whose configuration selects ACS3-HMAC-SHA256 signs every video-service call that way,
// and the service (the emulator, with its own checker) accepts them end to end.
#include "engine_cloud_support.h"

using namespace quorvane;
using namespace quorvane::test;

class Acs3Engine : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        client->stop();
        auto config = services();
        config.signatureVersion = VODSignatureVersion::Acs3HmacSha256;
        useClient(VODUploadClient::create(config));
        clip = makeFile("clip.mp4", "");
        ASSERT_TRUE(writeClip(clip, ClipSpec{.bitRate = 2000000}));
        info = std::make_shared<VodInfo>();
        info->title = "a clip";
        info->desc = "x & y";  // a reserved character in the canonical query
    }
    void TearDown() override {
        VODObjectCache::sharedCache().clearObjectWithPath(clip);
        EngineCloudTest::TearDown();
    }

    // The video-service calls in order, each with whether it was signed ACS3 and the code answered.
    std::vector<std::string> vodCalls() const {
        std::vector<std::string> out;
        for (const auto& r : cloud.requests())
            if (r.service == "vod" && r.method == "GET")
                out.push_back(r.operation + (r.header("Authorization").value_or("").rfind("ACS3-HMAC-SHA256 ", 0) == 0
                                                 ? " acs3 "
                                                 : " other ") +
                              (r.errorCode.empty() ? "ok" : r.errorCode));
        return out;
    }

    std::string clip;
    std::shared_ptr<VodInfo> info;
};

TEST_F(Acs3Engine, RefreshCreateAndImageGoSignedAcs3AndTheFilesArrive) {
    ASSERT_TRUE(initSts(client));
    client->setTranscode(false);
    client->setWorkflowId(std::string("wf-9"));
    info->templateGroupId = "tg-1";
    // A video id the service no longer knows: the engine refreshes first, then creates afresh.
    auto stale = std::make_shared<VODObject>();
    stale->videoId = "0123456789abcdef0123456789abcdef";
    stale->object = "sv/gone/gone.mp4";
    VODObjectCache::sharedCache().saveObject(stale, clip);
    auto photo = makeFile("photo.png", randomBytes(64 << 10, 5));
    ASSERT_TRUE(client->addFile(clip, info));
    ASSERT_TRUE(addAndStart(photo, info));
    ASSERT_TRUE(listener.waitFor("finish", 2)) << ::testing::PrintToString(listener.failures());

    // The refresh passed the signature check: the service answered about the video itself.
    EXPECT_EQ(vodCalls(), (std::vector<std::string>{"RefreshUploadVideo acs3 InvalidVideo.NotFound",
                                                    "CreateUploadVideo acs3 ok", "CreateUploadImage acs3 ok"}));
    const auto videos = cloud.videos();
    const auto images = cloud.images();
    ASSERT_EQ(videos.size(), 1u);
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(videos[0].title, "a clip");
    EXPECT_EQ(videos[0].params.value("Description", ""), "x & y");
    EXPECT_EQ(listener.results().at(0).videoId, videos[0].videoId);
    // The template group takes the place of "NoTranscode", and the workflow is sent.
    EXPECT_EQ(videos[0].params.value("TemplateGroupId", ""), "tg-1");
    EXPECT_FALSE(videos[0].params.contains("TranscodeMode"));
    EXPECT_EQ(videos[0].params.value("WorkflowId", ""), "wf-9");
    EXPECT_EQ(cloud.objectBytes(videos[0].bucket, videos[0].objectKey), foundation::readFile(clip).value_or(""));
    EXPECT_EQ(cloud.objectBytes(images[0].bucket, images[0].objectKey), randomBytes(64 << 10, 5));
}

TEST_F(Acs3Engine, WrongSecretFailsTheFileWithTheSignatureCode) {
    ASSERT_TRUE(client->init(sts.AccessKeyId, sts.AccessKeySecret + "x", sts.SecurityToken, sts.Expiration,
                             listener.make()));
    ASSERT_TRUE(addAndStart(clip, info));
    ASSERT_TRUE(listener.waitFor("failure"));
    EXPECT_EQ(listener.failures().at(0).first, "SignatureDoesNotMatch");
    EXPECT_TRUE(cloud.videos().empty());
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());
}
