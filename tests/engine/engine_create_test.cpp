// Create-upload requests end to end: a real clip registered with the video service, uploaded with the
// credentials it issued, with the optional parameters as the service receives them; refresh after an
// interruption; images; expiry and service errors. A video id the service no longer knows is covered
// with the ACS3 signature (engine_acs3_test.cpp).
#include <cstdio>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "engine_cloud_support.h"

using namespace quorvane;
using namespace quorvane::test;

namespace {

std::string fileBytes(const std::string& path) { return foundation::readFile(path).value_or(""); }

}  // namespace

class CreateUpload : public EngineCloudTest {
protected:
    void SetUp() override {
        EngineCloudTest::SetUp();
        ASSERT_TRUE(initSts(client));
        clip = makeFile("clip.mp4", "");
        ASSERT_TRUE(writeClip(clip, ClipSpec{.bitRate = 2000000}));
        info = std::make_shared<VodInfo>();
        info->title = "a clip";
        info->userData = R"({"a":"1"})";
    }
    void TearDown() override {
        VODObjectCache::sharedCache().clearObjectWithPath(clip);
        EngineCloudTest::TearDown();
    }
    std::string clip;
    std::shared_ptr<VodInfo> info;
};

TEST_F(CreateUpload, ClipAndImageAreRegisteredThenUploadedWithTheIssuedCredentials) {
    client->setTranscode(false);
    client->setAppId(std::string("app-7"));
    client->setWorkflowId(std::string(""));  // an empty workflow or template group counts as none
    info->templateGroupId = "";
    info->desc = "both files";
    auto photo = makeFile("PHOTO.JPG", randomBytes(120 << 10, 9));
    ASSERT_TRUE(client->addFile(clip, info));
    ASSERT_TRUE(addAndStart(photo, info));
    ASSERT_TRUE(listener.waitFor("finish", 2));
    ASSERT_TRUE(waitUntil([&] { return client->state() == VODClientState::Finished; }));

    const auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    const auto& video = videos[0];
    EXPECT_EQ(listener.results().at(0).videoId, video.videoId);
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), fileBytes(clip));
    EXPECT_EQ(client->listFiles()[0]->object, video.objectKey);
    EXPECT_EQ(video.title, "a clip");
    EXPECT_EQ(video.fileName, clip);
    EXPECT_EQ(video.params.value("FileSize", ""), std::to_string(fileBytes(clip).size()));
    EXPECT_EQ(video.params.value("TranscodeMode", ""), "NoTranscode");
    EXPECT_FALSE(video.params.contains("WorkflowId"));
    EXPECT_EQ(video.params.value("AppId", ""), "app-7");
    EXPECT_EQ(video.params.value("Description", ""), "both files");
    auto userData = foundation::parseJson(video.params.value("UserData", ""));
    ASSERT_TRUE(userData);
    EXPECT_EQ(userData->value("a", ""), "1");
    EXPECT_EQ(userData->value("Width", ""), "320");
    EXPECT_EQ(userData->value("Height", ""), "240");
    EXPECT_EQ(userData->value("Fps", ""), "25.00");
    EXPECT_EQ(userData->size(), 6u);
    // The bitrate goes in kilobits of 1024, not of 1000: the two differ for any real bitrate.
    const double bitsPerSecond = AVCVAssetInfo::AVCVBitrate(clip);
    ASSERT_GT(bitsPerSecond, 0);
    for (const double unit : {1024.0, 1000.0}) {
        char kilobits[32];
        std::snprintf(kilobits, sizeof kilobits, "%.2f", bitsPerSecond / unit);
        EXPECT_EQ(userData->value("Bitrate", "") == kilobits, unit == 1024.0) << kilobits;
    }
    // The caller's own credentials signed only the VOD request; the upload used the issued ones.
    for (const auto& r : cloud.requests("UploadPart"))
        EXPECT_NE(r.header("x-oss-security-token"), sts.SecurityToken);
    EXPECT_TRUE(VODObjectCache::sharedCache().getObjectWithPath(clip)->videoId.empty());  // cleared on success
    // The service hears the clip's progress under the video it registered.
    ASSERT_TRUE(waitUntil([&] { return !cloud.progressReports().empty(); }));
    for (const auto& report : cloud.progressReports()) EXPECT_EQ(report.fields.value("VideoId", ""), video.videoId);

    // The image is registered with its lower-case extension and finishes with its URL.
    const auto images = cloud.images();
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(images[0].params.value("ImageExt", ""), "jpg");
    EXPECT_EQ(images[0].params.value("ImageType", ""), "cover");
    EXPECT_EQ(images[0].params.value("Description", ""), "both files");
    EXPECT_EQ(images[0].params.value("UserData", ""), R"({"a":"1"})");  // no media facts for images
    EXPECT_EQ(listener.results().at(1).imageUrl, images[0].imageURL);
    EXPECT_FALSE(listener.results().at(1).videoId);
    EXPECT_EQ(cloud.objectBytes(images[0].bucket, images[0].objectKey), randomBytes(120 << 10, 9));
}

TEST_F(CreateUpload, SecondRunAfterAnInterruptionRefreshesAndKeepsTheObject) {
    cloud.addFault(Fault::error("UploadPart", 403, "SecurityTokenExpired"));
    ASSERT_TRUE(addAndStart(clip, info));
    ASSERT_TRUE(listener.waitFor("expire"));
    EXPECT_EQ(client->state(), VODClientState::Paused);
    client.reset();  // the process goes away

    RecordingListener again;
    auto next = VODUploadClient::create(services());
    next->setRecordDirectoryPath(dir.file("records"));
    auto fresh = cloud.issueSts();
    ASSERT_TRUE(next->init(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken, fresh.Expiration,
                           again.make()));
    ASSERT_TRUE(next->addFile(clip, info));
    ASSERT_TRUE(next->start());
    ASSERT_TRUE(again.waitFor("finish"));

    EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 1u);
    EXPECT_EQ(cloud.requests("RefreshUploadVideo").size(), 1u);
    const auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].refreshCount, 1);
    EXPECT_EQ(again.results().at(0).videoId, videos[0].videoId);
    EXPECT_EQ(cloud.objectBytes(videos[0].bucket, videos[0].objectKey), fileBytes(clip));
    // The new client took over the recorded upload instead of beginning one it would leave open.
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    EXPECT_EQ(openUploads(), 0u);
    next->stop();
}

TEST_F(CreateUpload, ExpiredCallerTokenPausesUntilANewOneArrives) {
    cloud.expireToken(sts.SecurityToken);
    ASSERT_TRUE(addAndStart(clip, info));
    ASSERT_TRUE(listener.waitFor("expire"));
    EXPECT_EQ(client->state(), VODClientState::Paused);
    EXPECT_EQ(listener.count("failure"), 0);
    EXPECT_EQ(eventsWithCode("20004").at(0).value("args", ""),
              "code=InvalidSecurityToken.Expired&message=Specified SecurityToken is expired.");

    auto fresh = cloud.issueSts();
    ASSERT_TRUE(client->resumeWithToken(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken,
                                        fresh.Expiration));
    ASSERT_TRUE(listener.waitFor("finish"));
    EXPECT_EQ(listener.folded(), (std::vector<std::string>{"started", "expire", "started", "progress", "success",
                                                           "finish"}));
}

TEST_F(CreateUpload, ServiceErrorFailsTheFileWithTheServiceCode) {
    cloud.addFault(Fault::error("CreateUploadVideo", 400, "InvalidParameter", "The Title is not valid."));
    ASSERT_TRUE(addAndStart(clip, info));
    ASSERT_TRUE(listener.waitFor("failure"));
    EXPECT_EQ(listener.failures().at(0), std::make_pair(std::string("InvalidParameter"),
                                                        std::string("The Title is not valid.")));
    // The file is marked after the listener heard of it.
    EXPECT_TRUE(waitUntil([&] { return client->listFiles()[0]->state == UploadFileState::Failure; }));
    EXPECT_EQ(client->state(), VODClientState::Started);
    EXPECT_TRUE(cloud.requests("InitiateMultipartUpload").empty());
}

TEST_F(CreateUpload, UserDataKeepsOnlyAJsonObjectBesideTheMediaFacts) {
    auto withObject = foundation::parseJson(engineOf(*client).userDataWithVideoPath(clip, R"({"k":"v"})").value_or(""));
    ASSERT_TRUE(withObject);
    EXPECT_EQ(withObject->value("k", ""), "v");
    EXPECT_EQ(withObject->size(), 6u);
    auto notJson = foundation::parseJson(engineOf(*client).userDataWithVideoPath(clip, "not json").value_or(""));
    ASSERT_TRUE(notJson);
    EXPECT_EQ(notJson->size(), 5u);
    for (const char* key : {"Duration", "Bitrate", "Fps", "Width", "Height"}) EXPECT_TRUE(notJson->contains(key));
    EXPECT_NE(notJson->value("Duration", "0.00"), "0.00");
}
