// The overlay, and images to object storage through the façade and the bridge.
#include "api/QuorvaneApiManager.h"
#include "bridge_test_support.h"

namespace quorvane::test {
namespace {

using emulator::Fault;

TEST(UploadingView, BarAndLabelFollowThePercentage) {
    platform::headless::installHeadlessDevice();
    auto view = UploadingView::initWithCancelCallback([] {});
    EXPECT_EQ(view->frame().width, 390);
    EXPECT_EQ(view->frame().height, 844);
    ASSERT_EQ(view->uploadBar()->superview(), view->uploadBarBgView());
    for (auto [percent, width] : {std::pair{0, 0.0}, {50, 99.0}, {100, 199.0}, {150, 298.0}}) {
        view->uploadingViewUpdate(percent);
        EXPECT_EQ(view->uploadBar()->frame().width, width);
        EXPECT_EQ(view->uploadBar()->frame().height, 4);
        EXPECT_EQ(view->uploadValue()->text(), std::to_string(percent) + "%");
    }
    // The bar is (81, 106, 230) in 8-bit channels, opaque.
    const auto colour = view->uploadBar()->backgroundColor();
    EXPECT_NEAR(colour.red * 255, 81, 1e-4);
    EXPECT_NEAR(colour.green * 255, 106, 1e-4);
    EXPECT_NEAR(colour.blue * 255, 230, 1e-4);
    EXPECT_EQ(colour.alpha, 1.0);
}

TEST(UploadingView, CancelCallsBackOnceThenLeavesTheWindow) {
    int cancels = 0;
    bool onScreenDuringCallback = false;
    auto window = std::make_shared<platform::Window>();
    std::shared_ptr<UploadingView> view;
    view = UploadingView::initWithCancelCallback([&] {
        ++cancels;
        onScreenDuringCallback = view->superview() != nullptr;
    });
    window->addSubview(view);
    view->cancelButton()->tap();
    EXPECT_EQ(cancels, 1);
    EXPECT_TRUE(onScreenDuringCallback);
    EXPECT_EQ(view->superview(), nullptr);
    EXPECT_TRUE(window->subviews().empty());
    view->uploadingViewUpdate(10);  // harmless once removed
    view->uploadingViewRemove();
}

class ImageUpload : public BridgeCloudTest {
protected:
    Value request(const std::vector<std::string>& names) {
        Value files = Value::array();
        for (const auto& name : names)
            files.push_back({{"filePath", mediaFile(name, randomBytes(20000 + files.size() * 1000, files.size() + 7))},
                             {"objectKey", "album/2024/" + name}});
        return {{"type", "image"}, {"accessToken", token()}, {"files", files}};
    }
};

TEST_F(ImageUpload, RefusedMiddleFileIsLeftOutAndTheOthersKeepTheirOrder) {
    cloud.addFaults({Fault::delay("PutObject", 0), Fault::error("PutObject", 403, "AccessDenied")});
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(request({"a.jpg", "b.jpg", "c.jpg"}), nullptr, answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    settle();
    ASSERT_EQ(answers.count(), 1);
    ASSERT_EQ(answers.successes().size(), 1u);
    const Value list = answers.successes()[0];
    ASSERT_EQ(list.size(), 2u);
    const std::string host = "https://" + bucket() + "." + cloud.hostPort() + "/";
    std::size_t i = 0;
    for (const std::string name : {"a.jpg", "c.jpg"}) {
        const std::string key = "album/2024/" + name;
        EXPECT_EQ(list[i]["path"], host + key);
        EXPECT_EQ(list[i]["videoId"], "");
        EXPECT_EQ(list[i]["name"], key);
        auto local = foundation::readFile(localPath(name));
        ASSERT_TRUE(local);
        EXPECT_EQ(list[i]["size"], std::to_string(local->size()));
        EXPECT_EQ(cloud.objectBytes(bucket(), key), local);
        ++i;
    }
    EXPECT_FALSE(cloud.object(bucket(), "album/2024/b.jpg"));
    EXPECT_TRUE(overlays().empty());
    auto config = cloud.enterpriseCalls().at(0);
    EXPECT_EQ(config.operation, "GetOssConfig");
    EXPECT_EQ(config.accessToken, token());
}

TEST_F(ImageUpload, ConfigurationFailuresAnswerWithCodes) {
    struct Case {
        std::optional<Value> configAnswer;
        std::optional<Fault> fault;
        Value expected;
    };
    const Case cases[] = {
        {Value{{"code", 401}}, std::nullopt, Value{{"code", "401"}, {"message", ""}}},
        {Value{{"code", "E7"}, {"msg", "no quota"}}, std::nullopt, Value{{"code", "E7"}, {"message", "no quota"}}},
        {std::nullopt, Fault::error("GetOssConfig", 503, "ServiceUnavailable"), Value{{"code", "nativeErrorCode.000"}, {"message", "请求失败，请稍后再试"}}},
    };
    for (const auto& c : cases) {
        cloud.setOssConfigAnswer(c.configAnswer);
        if (c.fault) cloud.addFault(*c.fault);
        Answers answers;
        QuorvaneApiManager::OSSUploadFile(request({"x.jpg"}), nullptr, answers.success(), answers.fail());
        ASSERT_TRUE(answers.waitForOne());
        settle();
        ASSERT_EQ(answers.failures().size(), 1u);
        EXPECT_EQ(answers.failures()[0], c.expected);
        EXPECT_EQ(answers.count(), 1);
    }
    EXPECT_TRUE(cloud.requests("PutObject").empty());
    EXPECT_TRUE(overlays().empty());
}

TEST_F(ImageUpload, WrongSecretFailsEveryFileWithUploadFailed) {
    cloud.setOssConfigAnswer(Value{{"accessKeyId", cloud.options().accessKeyId}, {"accessKeySecret", "wrong"},
                                   {"bucket", bucket()}, {"endpoint", cloud.endpoint()}});
    Answers answers;
    QuorvaneApiManager::OSSUploadFile(request({"a.jpg", "b.jpg"}), nullptr, answers.success(), answers.fail());
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_EQ(answers.failures().size(), 1u);
    EXPECT_EQ(answers.failures()[0], (Value{{"code", "nativeErrorCode.014"}, {"message", "上传失败"}}));
    EXPECT_EQ(cloud.requests("PutObject").size(), 2u);  // every file was tried
    EXPECT_TRUE(overlays().empty());
}

TEST_F(ImageUpload, CancelDuringTheSecondFileSendsNothingMoreAndNeverAnswers) {
    cloud.addFaults({Fault::delay("PutObject", 0), Fault::delay("PutObject", 1500)});
    auto tool = ApiOSSUploadTool::create();
    std::weak_ptr<ApiOSSUploadTool> weak = tool;
    Answers answers;
    tool->simpleUploadMany(request({"a.jpg", "b.jpg", "c.jpg"}), answers.success(), answers.fail());
    tool.reset();  // as the façade does: the running upload keeps it
    ASSERT_TRUE(waitUntil([&] { return cloud.firedCount("PutObject") >= 2; }));
    ASSERT_EQ(overlays().size(), 1u);
    overlays()[0]->cancelButton()->tap();
    EXPECT_TRUE(overlays().empty());
    // The worker waiting for the second file is let go once that put ends: the tool is released.
    ASSERT_TRUE(waitUntil([&] { return weak.expired(); }));
    settle();
    EXPECT_EQ(answers.count(), 0);
    EXPECT_EQ(cloud.requests("PutObject").size(), 2u);
    EXPECT_FALSE(cloud.object(bucket(), "album/2024/c.jpg"));
}

}  // namespace
}  // namespace quorvane::test
