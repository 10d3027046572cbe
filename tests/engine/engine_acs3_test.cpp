// An engine whose configuration selects ACS3-HMAC-SHA256 signs every video-service call that way,
// and the service (the emulator, with its own checker) accepts them end to end.
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VodInfo.h"
#include "engine_cloud_support.h"
#include "foundation/temp_files.h"
#include "support/media_files.h"

using namespace quorvane;
using namespace quorvane::test;

class Acs3Engine : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        client->stop();
        VODServiceConfig config;
        config.vodBaseUrl = cloud.endpoint() + "/";
        config.logServiceEndpoint = cloud.endpoint();
        config.signatureVersion = VODSignatureVersion::Acs3HmacSha256;
        client = VODUploadClient::create(config);
        engineOf(*client).eventManager()->setTransport(events);
        client->setRecordDirectoryPath(dir.file("records"));
        engineOf(*client).setRetryWait(20ms);
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
    // A video id the service no longer knows: the engine refreshes first, then creates.
    auto stale = std::make_shared<VODObject>();
    stale->videoId = "0123456789abcdef0123456789abcdef";
    stale->object = "sv/gone/gone.mp4";
    VODObjectCache::sharedCache().saveObject(stale, clip);
    auto photo = makeFile("photo.png", randomBytes(64 << 10, 5));
    ASSERT_TRUE(client->addFile(clip, info));
    ASSERT_TRUE(client->addFile(photo, info));
    ASSERT_TRUE(client->start());
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
    EXPECT_EQ(cloud.objectBytes(videos[0].bucket, videos[0].objectKey), foundation::readFile(clip).value_or(""));
    EXPECT_EQ(cloud.objectBytes(images[0].bucket, images[0].objectKey), randomBytes(64 << 10, 5));
}

TEST_F(Acs3Engine, WrongSecretFailsTheFileWithTheSignatureCode) {
    ASSERT_TRUE(client->init(sts.AccessKeyId, sts.AccessKeySecret + "x", sts.SecurityToken, sts.Expiration,
                             listener.make()));
    ASSERT_TRUE(client->addFile(clip, info));
    ASSERT_TRUE(client->start());
    ASSERT_TRUE(listener.waitFor("failure"));
    EXPECT_EQ(listener.failures().at(0).first, "SignatureDoesNotMatch");
    EXPECT_TRUE(cloud.videos().empty());
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());
}
