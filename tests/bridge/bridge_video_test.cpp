// A recorded video through the ticket path into the emulator's VOD and OSS, with its limits,
// expiry and cancel.
#include <filesystem>

#include "VODUpload/src/VODUploadClient.h"
#include "api/QuorvaneApiManager.h"
#include "bridge_test_support.h"

namespace quorvane::test {
namespace {

using emulator::Fault;

class VideoUpload : public BridgeCloudTest {
protected:
    Value request(const std::string& hostPath, const std::string& objectKey = "visit-0412") {
        return {{"type", "video"}, {"accessToken", token()}, {"enterpriseId", "ent-42"},
                {"files", Value::array({{{"filePath", hostPath}, {"objectKey", objectKey}}})}};
    }
    // A file of `size` bytes that takes no disk space.
    std::string sparseMediaFile(const std::string& name, std::uintmax_t size) {
        auto host = mediaFile(name, "");
        std::filesystem::resize_file(localPath(name), size);
        return host;
    }
};

TEST_F(VideoUpload, RecordedVideoLandsInVodAndTheHostGetsItsVideoId) {
    const std::string bytes = randomBytes(2500000, 41);
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(request(mediaFile("clip-A1.mp4", bytes)), nullptr, answers.success(),
                                      answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_TRUE(waitUntil([] { return overlays().empty(); }));
    settle();
    ASSERT_EQ(answers.failures().size(), 0u) << answers.failures()[0].dump();
    ASSERT_EQ(answers.successes().size(), 1u);
    ASSERT_EQ(cloud.videos().size(), 1u);
    const auto video = cloud.videos()[0];
    EXPECT_EQ(video.source, "ticket");
    EXPECT_EQ(video.fileName, "visit-0412.mp4");
    EXPECT_EQ(answers.successes()[0], Value::array({{{"path", ""}, {"videoId", video.videoId}, {"name", "clip-A1.mp4"},
                                                     {"size", "2500000"}}}));
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytes);
    auto object = cloud.object(video.bucket, video.objectKey);
    ASSERT_TRUE(object);
    EXPECT_GT(object->partCount, 1);
    // The fixed metadata travels in the notification header.
    EXPECT_EQ(object->notification["Vod"]["Title"], "clip-A1.mp4");
    EXPECT_EQ(object->notification["Vod"]["CateId"], 19);
    EXPECT_EQ(object->notification["Vod"]["Tags"], "sports");
    auto call = cloud.enterpriseCalls().at(0);
    EXPECT_EQ(call.operation, "CreateTicket");
    EXPECT_EQ(call.enterpriseId, "ent-42");
    EXPECT_EQ(call.body, (Value{{"file_name", "visit-0412.mp4"}}));
    EXPECT_TRUE(cloud.requests("CreateUploadVideo").empty());  // the ticket's credentials were used
}

TEST_F(VideoUpload, SizeLimitIsCheckedBeforeAnyRequest) {
    Answers over;
    QuorvaneApiManager::OSSUploadFile(request(sparseMediaFile("big.mp4", 500000001)), nullptr, over.success(),
                                      over.fail());
    ASSERT_EQ(over.failures().size(), 1u);  // at once, on the caller's thread
    EXPECT_EQ(over.failures()[0], (Value{{"message", "上传文件过大"}, {"code", "nativeErrorCode.012"}}));
    EXPECT_TRUE(cloud.requests().empty());

    // At the limit the ticket is asked for; the server's refusal goes on as it wrote it.
    cloud.setTicketAnswer(Value{{"code", 4031}, {"message", "quota exceeded"}});
    Answers at;
    QuorvaneApiManager::OSSUploadFile(request(sparseMediaFile("edge.mp4", 500000000)), nullptr, at.success(), at.fail());
    ASSERT_TRUE(at.waitForOne());
    ASSERT_EQ(at.failures().size(), 1u);
    EXPECT_EQ(at.failures()[0], (Value{{"code", 4031}, {"message", "quota exceeded"}}));
    EXPECT_EQ(cloud.enterpriseCalls().size(), 1u);
    EXPECT_TRUE(overlays().empty());
}

TEST_F(VideoUpload, ExpiredTokenAnswersTokenExpired) {
    cloud.addFault(Fault::error("InitiateMultipartUpload", 403, "SecurityTokenExpired", "token expired"));
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(request(mediaFile("late.mp4", randomBytes(300000, 5))), nullptr,
                                      answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_TRUE(waitUntil([] { return overlays().empty(); }));
    settle();
    ASSERT_EQ(answers.failures().size(), 1u);
    EXPECT_EQ(answers.failures()[0], (Value{{"code", "nativeErrorCode.013"}, {"message", "token expired"}}));
    EXPECT_EQ(answers.count(), 1);
}

TEST_F(VideoUpload, EngineFailureIsPassedOnWithTheEnginesCodeAndMessage) {
    cloud.addFault(Fault::error("InitiateMultipartUpload", 403, "AccessDenied", "no"));
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(request(mediaFile("denied.mp4", randomBytes(300000, 6))), nullptr,
                                      answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_EQ(answers.failures().size(), 1u);
    const Value failure = answers.failures()[0];
    EXPECT_EQ(failure.size(), 2u);
    EXPECT_NE(failure.value("code", ""), "");
    EXPECT_FALSE(failure.value("code", "").starts_with("nativeErrorCode"));
    ASSERT_TRUE(waitUntil([] { return overlays().empty(); }));
}

TEST_F(VideoUpload, CancelStopsTheEngineSilentlyAndReleasesTheTool) {
    cloud.addFaults({Fault::delay("UploadPart", 1500), Fault::delay("UploadPart", 1500)});
    auto tool = ApiOSSUploadTool::create();
    std::weak_ptr<ApiOSSUploadTool> weak = tool;
    Answers answers;
    tool->VODUploadFile(request(mediaFile("long.mp4", randomBytes(3500000, 9))), answers.success(), answers.fail());
    tool.reset();
    ASSERT_TRUE(waitUntil([&] { return cloud.firedCount("UploadPart") >= 1; }));
    ASSERT_EQ(overlays().size(), 1u);
    overlays()[0]->cancelButton()->tap();
    EXPECT_TRUE(overlays().empty());
    ASSERT_TRUE(waitUntil([&] { return weak.expired(); }));
    const auto partsAtRelease = cloud.requests("UploadPart").size();
    settle(2000ms);  // past the delayed parts
    EXPECT_EQ(answers.count(), 0);
    EXPECT_LE(cloud.requests("UploadPart").size(), partsAtRelease + 2);  // at most the two already in flight
    EXPECT_TRUE(cloud.requests("CompleteMultipartUpload").empty());
}

}  // namespace
}  // namespace quorvane::test
