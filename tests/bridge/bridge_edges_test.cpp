// The bridge at its edges: empty file lists on both paths, a ticket request lost on the way, a
// signer that cannot sign, and the overlay's figure while several images go up.
#include "api/QuorvaneApiManager.h"
#include "bridge_test_support.h"
#include "foundation/log.h"

namespace quorvane::test {
namespace {

using emulator::Fault;

TEST(ImageUploadPercent, ScalesTheFilesOwnFigureByItsPlaceInTheList) {
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(100, 100, 0, 4), 25);  // first of four, done
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(50, 100, 3, 4), 50);   // fourth of four, half way
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(100, 100, 0, 3), 33);
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(100, 100, 1, 3), 66);
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(1, 3, 0, 1), 33);
    EXPECT_EQ(ApiOSSUploadTool::imageUploadPercent(0, 0, 0, 1), 0);  // nothing expected yet
}

class BridgeEdges : public BridgeCloudTest {
protected:
    Value imageRequest(Value files) { return {{"type", "image"}, {"accessToken", token()}, {"files", files}}; }
    Value videoRequest(Value files) {
        return {{"type", "video"}, {"accessToken", token()}, {"enterpriseId", "ent-1"}, {"files", files}};
    }
    const Value requestFailed{{"code", "nativeErrorCode.000"}, {"message", "请求失败，请稍后再试"}};
};

TEST_F(BridgeEdges, EmptyImageListShowsTheOverlayAndNeverAnswers) {
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(imageRequest(Value::array()), nullptr, answers.success(), answers.fail());
    ASSERT_TRUE(waitUntil([&] { return !overlays().empty(); }));
    settle();
    EXPECT_EQ(answers.count(), 0);
    EXPECT_EQ(overlays().size(), 1u);
    EXPECT_TRUE(cloud.requests("PutObject").empty());
    for (const auto& overlay : overlays()) overlay->uploadingViewRemove();
}

TEST_F(BridgeEdges, EmptyVideoListAnswersRequestFailedWithoutATicket) {
    for (const Value& files : {Value::array(), Value("not a list"), Value::array({"not a dictionary"})}) {
        Answers answers;
        QuorvaneApiManager::OSSUploadFile(videoRequest(files), nullptr, answers.success(), answers.fail());
        ASSERT_TRUE(answers.waitForOne());
        EXPECT_EQ(answers.failures(), std::vector<Value>{requestFailed});
    }
    settle();
    EXPECT_TRUE(cloud.enterpriseCalls().empty());
    EXPECT_TRUE(overlays().empty());
}

TEST_F(BridgeEdges, TicketLostOnTheWayAnswersRequestFailed) {
    cloud.addFault(Fault::reset("CreateTicket"));
    Answers answers;
    auto files = Value::array({{{"filePath", mediaFile("clip.mp4", "movie")}, {"objectKey", "clip"}}});
    QuorvaneApiManager::OSSUploadFile(videoRequest(files), nullptr, answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    settle();
    EXPECT_EQ(answers.failures(), std::vector<Value>{requestFailed});
    EXPECT_EQ(answers.count(), 1);
    EXPECT_EQ(cloud.firedFaults().size(), 1u);
    EXPECT_TRUE(overlays().empty());
    EXPECT_TRUE(cloud.requests("PutObject").empty());
}

TEST_F(BridgeEdges, UnsignableRequestsFailEachFileWithTheSignersError) {
    // No secret: the signer has nothing to sign with, so no put leaves the device.
    cloud.setOssConfigAnswer(Value{{"accessKeyId", cloud.options().accessKeyId}, {"accessKeySecret", ""},
                                   {"bucket", bucket()}, {"endpoint", cloud.endpoint()}});
    foundation::LogCapture log;
    Answers answers;
    auto files = Value::array({{{"filePath", mediaFile("a.jpg", "a")}, {"objectKey", "a.jpg"}},
                               {{"filePath", mediaFile("b.jpg", "b")}, {"objectKey", "b.jpg"}}});
    QuorvaneApiManager::OSSUploadFile(imageRequest(files), nullptr, answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    EXPECT_EQ(answers.failures(), (std::vector<Value>{Value{{"code", "nativeErrorCode.014"}, {"message", "上传失败"}}}));
    EXPECT_TRUE(cloud.requests("PutObject").empty());
    int signingFailures = 0;
    for (const auto& line : log.lines())
        signingFailures += line.starts_with("upload object failed, error: 127.0.0.1(-1001)");
    EXPECT_EQ(signingFailures, 2);
}

}  // namespace
}  // namespace quorvane::test
