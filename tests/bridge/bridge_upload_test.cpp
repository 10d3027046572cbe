// The upload bridge against the cloud emulator: the overlay and its layout; images to object storage
// and recorded videos through the ticket path into VOD, with their limits, expiry and cancel; the
// bridge at its edges (empty lists, a lost ticket, a signer that cannot sign) and two tools each with
// its own configuration.
#include <filesystem>
#include <tuple>

#include "VODUpload/src/VODUploadClient.h"
#include "bridge_test_support.h"
#include "device/QrScanStyle.h"
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

TEST_F(BridgeCloudTest, EmptyListsALostTicketAndAnUnsignableRequestAnswerOnceOrNever) {
    auto video = [&](Value files) {
        return ossUpload({{"type", "video"}, {"accessToken", token()}, {"enterpriseId", "ent-1"}, {"files", files}});
    };
    auto images = [&](Value files, bool wait = true) {
        return ossUpload({{"type", "image"}, {"accessToken", token()}, {"files", files}}, wait);
    };
    // A ticket request lost on the way (the first request to this cloud: no kept-alive connection to
    // retry it on) answers "request failed", once.
    cloud.addFault(Fault::reset("CreateTicket"));
    auto lost = video(Value::array({{{"filePath", mediaFile("clip.mp4", "movie")}, {"objectKey", "clip"}}}));
    settle();
    EXPECT_EQ(lost->failures(), std::vector<Value>{kRequestFailed});
    EXPECT_EQ(lost->count(), 1);
    EXPECT_EQ(cloud.firedFaults().size(), 1u);
    EXPECT_TRUE(overlays().empty());
    const auto calls = cloud.enterpriseCalls().size();

    // An empty video list, or one that is no list of dictionaries: "request failed" without a ticket.
    for (const Value& files : {Value::array(), Value("not a list"), Value::array({"not a dictionary"})})
        EXPECT_EQ(video(files)->failures(), std::vector<Value>{kRequestFailed});
    settle();
    EXPECT_EQ(cloud.enterpriseCalls().size(), calls);
    EXPECT_TRUE(overlays().empty());

    // An empty image list shows the overlay and never answers.
    auto none = images(Value::array(), false);
    ASSERT_TRUE(waitUntil([&] { return !overlays().empty(); }));
    settle();
    EXPECT_EQ(none->count(), 0);
    EXPECT_EQ(overlays().size(), 1u);
    for (const auto& overlay : overlays()) overlay->uploadingViewRemove();

    // No secret: the signer has nothing to sign with, so no put leaves the device; each file fails with
    // the signer's error.
    cloud.setOssConfigAnswer(Value{{"accessKeyId", cloud.options().accessKeyId}, {"accessKeySecret", ""},
                                   {"bucket", bucket()}, {"endpoint", cloud.endpoint()}});
    foundation::LogCapture log;
    auto unsignable = images(Value::array({{{"filePath", mediaFile("a.jpg", "a")}, {"objectKey", "a.jpg"}},
                                           {{"filePath", mediaFile("b.jpg", "b")}, {"objectKey", "b.jpg"}}}));
    EXPECT_EQ(unsignable->failures(), std::vector<Value>{kUploadFailed});
    int signingFailures = 0;
    for (const auto& line : log.lines())
        signingFailures += line.starts_with("upload object failed, error: 127.0.0.1(-1001)");
    EXPECT_EQ(signingFailures, 2);
    EXPECT_TRUE(cloud.requests("PutObject").empty());
}

// Per-tool configuration: two bridge tools in one process, each created with its own enterprise API
// host, fetch their storage configuration from it and store their images there, whatever the
// process-wide host says.
TEST_F(BridgeCloudTest, TwoToolsEachFetchTheirConfigurationFromTheirOwnHost) {
    emulator::CloudEmulator x, y;
    ASSERT_TRUE(x.start());
    ASSERT_TRUE(y.start());
    struct Run {
        emulator::CloudEmulator& cloud;
        std::string name;
        Answers answers;
    };
    Run runs[] = {{x, "x.jpg", {}}, {y, "y.jpg", {}}};
    std::vector<std::shared_ptr<ApiOSSUploadTool>> tools;
    unsigned seed = 31;
    for (auto& run : runs) {
        auto config = services();
        config.enterpriseApiBaseUrl = run.cloud.endpoint() + "/";
        tools.push_back(ApiOSSUploadTool::create(config));
        Value files = Value::array({Value{{"filePath", mediaFile(run.name, randomBytes(9000, seed++))},
                                          {"objectKey", "album/" + run.name}}});
        tools.back()->simpleUploadMany(Value{{"accessToken", run.cloud.options().enterpriseAccessToken},
                                             {"files", files}},
                                       run.answers.success(), run.answers.fail());
    }
    for (auto& run : runs) {
        SCOPED_TRACE(run.name);
        ASSERT_TRUE(run.answers.waitForOne());
        ASSERT_EQ(run.answers.successes().size(), 1u);
        const auto calls = run.cloud.enterpriseCalls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].operation, "GetOssConfig");
        const auto objects = run.cloud.objects();
        ASSERT_EQ(objects.size(), 1u);
        EXPECT_EQ(objects[0].key, "album/" + run.name);
    }
    // The process-wide host, the fixture's own emulator, was never asked.
    EXPECT_TRUE(cloud.enterpriseCalls().empty());
    EXPECT_TRUE(cloud.objects().empty());
}

TEST(UploadingView, BarAndLabelFollowThePercentageAndCancelCallsBackOnceThenLeaves) {
    platform::headless::installHeadlessDevice();
    std::shared_ptr<UploadingView> view = UploadingView::initWithCancelCallback([] {});
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

    // Cancel calls back once, then leaves the window.
    int cancels = 0;
    bool onScreenDuringCallback = false;
    auto window = std::make_shared<platform::Window>();
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

// The overlay takes its layout from the bundle's interface file: the outlets come from the file, and
// without the file the overlay is bare and says which file is missing.
TEST(UploadingView, OutletsComeFromTheFileAndAMissingFileLeavesABareOverlay) {
    auto device = platform::headless::installHeadlessDevice();
    auto view = UploadingView::initWithCancelCallback([] {});
    ASSERT_TRUE(view->uploadValue() && view->uploadBarBgView() && view->cancelButton());
    EXPECT_EQ(view->uploadValue()->text(), "0%");
    EXPECT_EQ(view->uploadBarBgView()->frame().width, 199);
    // The panel is centred on the 390 × 844 screen.
    auto panel = view->uploadValue()->superview();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->frame().x, (390 - panel->frame().width) / 2);
    EXPECT_EQ(panel->frame().y, (844 - panel->frame().height) / 2);

    foundation::ScopedTempDir empty;
    setScanResourceDirectory(empty.path());
    foundation::LogCapture log;
    int cancels = 0;
    auto upload = UploadingView::initWithCancelCallback([&] { ++cancels; });
    EXPECT_TRUE(log.contains("Could not load the interface file QuorvaneApiSDKImage.bundle/UploadingView"));
    EXPECT_TRUE(upload->subviews().empty());
    EXPECT_FALSE(upload->uploadValue());
    EXPECT_FALSE(upload->cancelButton());
    EXPECT_EQ(upload->frame().width, 390);
    upload->uploadingViewUpdate(50);  // harmless without a label or a track
    upload->uploadingViewRemove();
    EXPECT_EQ(cancels, 0);
    setScanResourceDirectory(std::nullopt);
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
    auto answers = ossUpload(request({"a.jpg", "b.jpg", "c.jpg"}));
    settle();
    ASSERT_EQ(answers->count(), 1);
    ASSERT_EQ(answers->successes().size(), 1u);
    const Value list = answers->successes()[0];
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

// A configuration refused, in either of its forms or by the service, answers with its code and sends
// nothing; a wrong secret fails every file, each tried, with "upload failed".
TEST_F(ImageUpload, ConfigurationFailuresAnswerWithCodesAndAWrongSecretFailsEveryFile) {
    const std::tuple<std::optional<Value>, std::optional<Fault>, Value> cases[] = {
        {Value{{"code", 401}}, std::nullopt, Value{{"code", "401"}, {"message", ""}}},
        {Value{{"code", "E7"}, {"msg", "no quota"}}, std::nullopt, Value{{"code", "E7"}, {"message", "no quota"}}},
        {std::nullopt, Fault::error("GetOssConfig", 503, "ServiceUnavailable"), kRequestFailed},
    };
    for (const auto& [configAnswer, fault, expected] : cases) {
        cloud.setOssConfigAnswer(configAnswer);
        if (fault) cloud.addFault(*fault);
        auto answers = ossUpload(request({"x.jpg"}));
        settle();
        EXPECT_EQ(answers->failures(), std::vector<Value>{expected});
        EXPECT_EQ(answers->count(), 1);
    }
    EXPECT_TRUE(cloud.requests("PutObject").empty());

    cloud.setOssConfigAnswer(Value{{"accessKeyId", cloud.options().accessKeyId}, {"accessKeySecret", "wrong"},
                                   {"bucket", bucket()}, {"endpoint", cloud.endpoint()}});
    EXPECT_EQ(ossUpload(request({"a.jpg", "b.jpg"}))->failures(), std::vector<Value>{kUploadFailed});
    EXPECT_EQ(cloud.requests("PutObject").size(), 2u);  // every file was tried
    EXPECT_TRUE(overlays().empty());
}

TEST_F(ImageUpload, CancelDuringTheSecondFileSendsNothingMoreAndNeverAnswers) {
    cloud.addFaults({Fault::delay("PutObject", 0), Fault::delay("PutObject", 1500)});
    auto tool = ApiOSSUploadTool::create(services());
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

// The size limit is checked before any request; a recorded video within it lands in VOD through the
// ticket path and the host gets its video id.
TEST_F(VideoUpload, SizeLimitIsCheckedFirstAndARecordedVideoLandsInVodWithItsVideoId) {
    auto over = ossUpload(request(sparseMediaFile("big.mp4", 500000001)), false);
    ASSERT_EQ(over->failures().size(), 1u);  // at once, on the caller's thread
    EXPECT_EQ(over->failures()[0], (Value{{"message", "上传文件过大"}, {"code", "nativeErrorCode.012"}}));
    EXPECT_TRUE(cloud.requests().empty());

    // At the limit the ticket is asked for; the server's refusal goes on as it wrote it.
    cloud.setTicketAnswer(Value{{"code", 4031}, {"message", "quota exceeded"}});
    auto at = ossUpload(request(sparseMediaFile("edge.mp4", 500000000)));
    EXPECT_EQ(at->failures(), std::vector<Value>{(Value{{"code", 4031}, {"message", "quota exceeded"}})});
    EXPECT_EQ(cloud.enterpriseCalls().size(), 1u);
    EXPECT_TRUE(overlays().empty());
    cloud.setTicketAnswer(std::nullopt);

    const std::string bytes = randomBytes(2500000, 41);
    auto answers = ossUpload(request(mediaFile("clip-A1.mp4", bytes)));
    ASSERT_TRUE(waitUntil([] { return overlays().empty(); }));
    settle();
    ASSERT_EQ(answers->failures().size(), 0u) << answers->failures()[0].dump();
    ASSERT_EQ(answers->successes().size(), 1u);
    ASSERT_EQ(cloud.videos().size(), 1u);
    const auto video = cloud.videos()[0];
    EXPECT_EQ(video.source, "ticket");
    EXPECT_EQ(video.fileName, "visit-0412.mp4");
    EXPECT_EQ(answers->successes()[0], Value::array({{{"path", ""}, {"videoId", video.videoId}, {"name", "clip-A1.mp4"},
                                                     {"size", "2500000"}}}));
    EXPECT_EQ(cloud.objectBytes(video.bucket, video.objectKey), bytes);
    auto object = cloud.object(video.bucket, video.objectKey);
    ASSERT_TRUE(object);
    EXPECT_GT(object->partCount, 1);
    // The fixed metadata travels in the notification header.
    EXPECT_EQ(object->notification["Vod"]["Title"], "clip-A1.mp4");
    EXPECT_EQ(object->notification["Vod"]["CateId"], 19);
    EXPECT_EQ(object->notification["Vod"]["Tags"], "sports");
    auto call = cloud.enterpriseCalls().at(1);
    EXPECT_EQ(call.operation, "CreateTicket");
    EXPECT_EQ(call.enterpriseId, "ent-42");
    EXPECT_EQ(call.body, (Value{{"file_name", "visit-0412.mp4"}}));
    EXPECT_TRUE(cloud.requests("CreateUploadVideo").empty());  // the ticket's credentials were used
}

// An expired token answers "token expired"; any other failure of the engine is passed on with the
// engine's own code and message.
TEST_F(VideoUpload, EngineFailuresAnswerOnceTokenExpiredOrWithTheEnginesCode) {
    for (auto [code, message] : {std::pair{"SecurityTokenExpired", "token expired"}, {"AccessDenied", "no"}}) {
        SCOPED_TRACE(code);
        cloud.addFault(Fault::error("InitiateMultipartUpload", 403, code, message));
        auto answers = ossUpload(request(mediaFile(std::string(code) + ".mp4", randomBytes(300000, 5))));
        ASSERT_TRUE(waitUntil([] { return overlays().empty(); }));
        settle();
        EXPECT_EQ(answers->count(), 1);
        ASSERT_EQ(answers->failures().size(), 1u);
        const Value failure = answers->failures()[0];
        if (code == std::string("SecurityTokenExpired")) {
            EXPECT_EQ(failure, (Value{{"code", "nativeErrorCode.013"}, {"message", "token expired"}}));
            continue;
        }
        EXPECT_EQ(failure.size(), 2u);
        EXPECT_NE(failure.value("code", ""), "");
        EXPECT_FALSE(failure.value("code", "").starts_with("nativeErrorCode"));
    }
}

TEST_F(VideoUpload, CancelStopsTheEngineSilentlyAndReleasesTheTool) {
    cloud.addFaults({Fault::delay("UploadPart", 1500), Fault::delay("UploadPart", 1500)});
    auto tool = ApiOSSUploadTool::create(services());
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
