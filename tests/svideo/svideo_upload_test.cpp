// The whole job against the emulator: the cover and the clip go up as one job, the video is
// registered with the cover's URL, one progress bar spans both files; refusals; remembered videos.
#include "foundation/log.h"
#include "oss/oss_log.h"
#include "svideo_test_support.h"

using namespace quorvane;
using namespace quorvane::test;

using SVideoUpload = SVideoCloudTest;

// Refused first: a job without a title, and any job while one is under way (one without a cover sits at
// step 0 until cancelled). Then the cover and the clip go up as one job.
TEST_F(SVideoUpload, CoverAndClipGoUpAsOneJobWithTheVideoNamingTheCover) {
    oss::OSSLog::enableLog();
    foundation::LogCapture log;
    auto untitled = std::make_shared<VodSVideoInfo>();
    EXPECT_FALSE(client->uploadWithVideoPath(clip, cover, untitled, sts.AccessKeyId, sts.AccessKeySecret,
                                             sts.SecurityToken));
    untitled->title = "";
    EXPECT_FALSE(client->uploadWithVideoPath(clip, cover, untitled, sts.AccessKeyId, sts.AccessKeySecret,
                                             sts.SecurityToken));
    EXPECT_TRUE(log.contains("[Debug]: error: title in VodSVideoInfo can not be NULL"));
    EXPECT_TRUE(idle());
    ASSERT_TRUE(client->uploadWithVideoPath(clip, std::nullopt, info, sts.AccessKeyId, sts.AccessKeySecret,
                                            sts.SecurityToken));
    EXPECT_TRUE(log.contains("[Debug]: imagePath must not be nil!"));
    EXPECT_EQ(client->status(), VODUploadSVideoClient::kStatusUploading);
    EXPECT_FALSE(start());
    EXPECT_TRUE(log.contains("[Debug]: error: client is uploading, call this method when upload task is finished."));
    client->cancel();
    EXPECT_TRUE(idle());

    client->setRequestId("req-42");
    client->setTranscode(false);
    client->setAppId(std::string("app-7"));
    ASSERT_TRUE(start());
    EXPECT_FALSE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    oss::OSSLog::disableLog();
    EXPECT_TRUE(idle());

    const auto images = cloud.images();
    ASSERT_EQ(images.size(), 1u);
    const auto& image = images[0];
    EXPECT_EQ(image.imageType, "cover");
    EXPECT_EQ(image.imageExt, "jpg");
    EXPECT_EQ(image.params.value("AppId", ""), "app-7");
    EXPECT_EQ(image.params.value("UserData", ""), R"({"app":"x"})");
    EXPECT_EQ(cloud.objectBytes(image.bucket, image.objectKey), bytesOf(cover));

    const auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    const auto& video = videos[0];
    EXPECT_EQ(video.params.value("CoverURL", ""), image.imageURL);
    EXPECT_EQ(video.title, "short clip");
    EXPECT_EQ(video.fileName, clip);  // the whole local path
    EXPECT_EQ(video.params.value("FileSize", ""), std::to_string(clipSize()));
    EXPECT_EQ(video.params.value("Tags", ""), "a,b");
    EXPECT_EQ(video.params.value("Description", ""), "with a cover");
    EXPECT_EQ(video.params.value("CateId", ""), "17");
    EXPECT_EQ(video.params.value("TranscodeMode", ""), "NoTranscode");
    auto userData = foundation::parseJson(video.params.value("UserData", ""));
    ASSERT_TRUE(userData);
    EXPECT_EQ(userData->value("app", ""), "x");
    EXPECT_EQ(userData->value("Source", ""), "short_video");
    EXPECT_EQ(userData->value("Width", ""), "320");
    EXPECT_EQ(userData->value("Fps", ""), "25.00");
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytesOf(clip));
    EXPECT_TRUE(log.contains("svideo client createOrRefreshUploadVideo success videoid:" + video.videoId));
    auto stored = cloud.object(video.bucket, video.objectKey);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->notification["Vod"].value("CoverUrl", ""), image.imageURL);
    EXPECT_EQ(stored->notification["Vod"].value("Title", ""), "short clip");

    ASSERT_EQ(delegate->successes().size(), 1u);
    EXPECT_EQ(delegate->successes()[0].vid, video.videoId);
    EXPECT_EQ(delegate->successes()[0].imageUrl, image.imageURL);
    ASSERT_EQ(delegate->results().size(), 1u);
    EXPECT_EQ(delegate->results()[0].videoId, video.videoId);
    EXPECT_EQ(delegate->results()[0].bucket, video.bucket);
    EXPECT_EQ(delegate->results()[0].endpoint, cloud.endpoint());
    EXPECT_EQ(delegate->count("failed"), 0);
    EXPECT_EQ(client->client()->requestId(), "req-42");

    // One bar over both files: the cover's bytes, then the cover plus the clip's, never backwards.
    const auto progress = delegate->progress();
    ASSERT_FALSE(progress.empty());
    const std::int64_t total = coverSize() + clipSize();
    bool sawCoverDone = false, sawClip = false;
    for (std::size_t i = 0; i < progress.size(); ++i) {
        EXPECT_EQ(progress[i].second, total);
        if (i) {
            EXPECT_GE(progress[i].first, progress[i - 1].first);
        }
        sawCoverDone |= progress[i].first == coverSize();
        sawClip |= progress[i].first > coverSize();
    }
    EXPECT_TRUE(sawCoverDone);
    EXPECT_TRUE(sawClip);
    EXPECT_EQ(progress.back().first, total);

    // The engine's telemetry went to the short-video log store.
    AVCVEventTransport::shared()->waitUntilIdle(20s);
    const auto events = cloud.logEvents();
    ASSERT_FALSE(events.empty());
    for (const auto& e : events) EXPECT_EQ(e.logstore, "svideo");
}

TEST_F(SVideoUpload, RememberedVideoGetsItsSlotRefreshedInsteadOfANewOne) {
    const auto ticket = cloud.createUploadTicket("earlier", clip);
    cache->rememberVideoId(clip, ticket.videoId);

    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 0u);
    ASSERT_EQ(cloud.videos().size(), 1u);
    EXPECT_EQ(cloud.videos()[0].refreshCount, 1);
    EXPECT_EQ(delegate->results().at(0).videoId, ticket.videoId);
    EXPECT_EQ(cloud.objectBytes(ticket.bucket, ticket.objectKey), bytesOf(clip));
    EXPECT_TRUE(cache->getObjectWithPath(clip)->videoId.empty());  // cleared once the clip is up
    for (const auto& other : VODObjectCache::sharedCache().objects())  // the process-wide one is left alone
        EXPECT_NE(other->key, VODObjectCache::uniqueIdWithFilePath(clip));
}

TEST_F(SVideoUpload, VanishedRememberedVideoIsRegisteredAfresh) {
    cache->rememberVideoId(clip, "0123456789abcdef0123456789abcdef");

    ASSERT_TRUE(start());
    ASSERT_TRUE(delegate->waitFor("result"));
    EXPECT_EQ(cloud.requests("RefreshUploadVideo").size(), 1u);
    EXPECT_EQ(cloud.requests("CreateUploadVideo").size(), 1u);
    ASSERT_EQ(cloud.videos().size(), 1u);
    EXPECT_EQ(delegate->results().at(0).videoId, cloud.videos()[0].videoId);
    EXPECT_EQ(delegate->count("failed"), 0);
}
