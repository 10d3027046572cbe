// The façade's multipart upload to a host URL, its routing by "type", and the share and save
// commands working from an image URL.
#include <filesystem>

#include "api/QuorvaneApiManager.h"
#include "bridge_test_support.h"
#include "foundation/crypto.h"
#include "platform/activity_view_controller.h"
#include "platform/headless/headless_photo_library.h"
#include "platform/headless/headless_presenter.h"

namespace quorvane::test {
namespace {

using emulator::Fault;

// A 1×1 PNG.
std::string pngBytes() {
    return *foundation::base64Decode(
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5ErkJggg==");
}

class FacadeUpload : public BridgeCloudTest {
protected:
    std::shared_ptr<platform::headless::HeadlessPresenter> presenter = platform::headless::HeadlessPresenter::create();
};

TEST_F(FacadeUpload, FileGoesToTheHostUrlWithItsFieldsAndIsThenDeleted) {
    const std::string bytes = randomBytes(50000, 3);
    Value params{{"url", cloud.endpoint() + "/host/upload"}, {"name", "attachment"},
                 {"filePath", mediaFile("ABC.jpg", bytes)}, {"header", {{"X-Token", "t-1"}}},
                 {"formData", {{"kind", "receipt"}}}, {"fileType", "image"}};
    Answers answers;
    QuorvaneApiManager::uploadFile(params, presenter, answers.success(), answers.fail());
    ASSERT_EQ(presenter->huds().size(), 1u);
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_EQ(answers.successes().size(), 1u);
    EXPECT_EQ(answers.successes()[0]["msg"], "success");
    EXPECT_TRUE(presenter->huds()[0]->isHidden());
    ASSERT_EQ(cloud.hostUploads().size(), 1u);
    const auto upload = cloud.hostUploads()[0];
    EXPECT_EQ(upload.fileField, "attachment");
    EXPECT_EQ(upload.fileName, ".jpg");  // "image" is not "Image": the default kind
    EXPECT_EQ(upload.fileContentType, "image/jpg");
    EXPECT_EQ(upload.fileBytes, bytes);
    EXPECT_EQ(upload.fields, (Value{{"kind", "receipt"}}));
    bool tokenSent = false;
    for (const auto& [name, value] : upload.headers) tokenSent |= name == "X-Token" && value == "t-1";
    EXPECT_TRUE(tokenSent);
    EXPECT_FALSE(std::filesystem::exists(localPath("ABC.jpg")));
}

// The kind names the file part and its type; the field takes the given name.
TEST_F(FacadeUpload, AudioAndVideoKindsNameThePartBySuffix) {
    const char* kinds[][4] = {{"Audio", "v.mp3", ".mp3", "audio/mp3"}, {"Video", "clip.mp4", ".mp4", "video/mp4"}};
    for (const auto& [kind, file, suffix, type] : kinds) {
        Answers answers;
        QuorvaneApiManager::uploadFile({{"url", cloud.endpoint() + "/host/upload"}, {"name", kind},
                                        {"filePath", mediaFile(file, "bytes")}, {"fileType", kind}},
                                       presenter, answers.success(), answers.fail());
        ASSERT_TRUE(answers.waitForOne()) << kind;
        const auto upload = cloud.hostUploads().back();
        EXPECT_EQ(upload.fileName, suffix);
        EXPECT_EQ(upload.fileContentType, type);
        EXPECT_EQ(upload.fileField, kind);
    }
    EXPECT_EQ(cloud.hostUploads().size(), 2u);
}

TEST_F(FacadeUpload, MissingFileAndFailedRequestAreReportedByWord) {
    Answers missing, noSeparator;
    Value params{{"url", cloud.endpoint() + "/host/upload"}, {"filePath", "/sandbox/tmp/media/gone.jpg"}};
    QuorvaneApiManager::uploadFile(params, presenter, missing.success(), missing.fail());
    std::ofstream(tmp.path() + "/here.jpg") << "x";
    params["filePath"] = tmp.path() + "/here.jpg";  // readable, but not under a media directory
    QuorvaneApiManager::uploadFile(params, presenter, noSeparator.success(), noSeparator.fail());
    EXPECT_EQ(missing.failures(), std::vector<Value>{"FileNotExists"});
    EXPECT_EQ(noSeparator.failures(), std::vector<Value>{"FileNotExists"});
    EXPECT_TRUE(presenter->huds().empty());

    cloud.addFault(Fault::error("HostUpload", 500, "InternalError"));
    Answers failed;
    params["filePath"] = mediaFile("keep.jpg", "bytes");
    QuorvaneApiManager::uploadFile(params, presenter, failed.success(), failed.fail());
    ASSERT_TRUE(failed.waitForOne());
    EXPECT_EQ(failed.failures(), std::vector<Value>{"RequestFailed"});
    ASSERT_EQ(presenter->huds().size(), 1u);
    EXPECT_TRUE(presenter->huds()[0]->isHidden());
    EXPECT_TRUE(std::filesystem::exists(localPath("keep.jpg")));  // kept for a retry
    EXPECT_TRUE(cloud.enterpriseCalls().empty());
}

TEST_F(FacadeUpload, UnknownUploadTypeDoesNothing) {
    Answers answers;
    QuorvaneApiManager::OSSUploadFile({{"type", "Video"}, {"files", Value::array()}}, nullptr, answers.success(),
                                      answers.fail());
    settle();
    EXPECT_EQ(answers.count(), 0);
    EXPECT_TRUE(cloud.requests().empty());
}

TEST_F(FacadeUpload, ImagesDecodeFromFilesAndHttpButNotFromOtherBytes) {
    std::ofstream(tmp.path() + "/logo.png", std::ios::binary) << pngBytes();
    std::ofstream(tmp.path() + "/page.html", std::ios::binary) << "<html><body>not an image</body></html>";
    auto image = QuorvaneApiManager::getImageFromUrlStr("file://" + tmp.path() + "/logo.png");
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 1);
    EXPECT_EQ(image->height, 1);
    EXPECT_EQ(image->data, pngBytes());
    EXPECT_FALSE(QuorvaneApiManager::getImageFromUrlStr("file://" + tmp.path() + "/page.html"));
    EXPECT_FALSE(QuorvaneApiManager::getImageFromUrlStr("file://" + tmp.path() + "/none.png"));
    EXPECT_FALSE(QuorvaneApiManager::getImageFromUrlStr(std::nullopt));
    EXPECT_FALSE(QuorvaneApiManager::getImageFromUrlStr(cloud.endpoint() + "/host/nothing-here"));  // a JSON error

    emulator::EmulatorOptions open;
    open.verifySignatures = false;
    emulator::CloudEmulator publicCloud(open);
    ASSERT_TRUE(publicCloud.start());
    publicCloud.putObject(open.bucket, "logo.png", pngBytes(), "image/png");
    auto fetched = QuorvaneApiManager::getImageFromUrlStr(publicCloud.endpoint() + "/" + open.bucket + "/logo.png");
    ASSERT_TRUE(fetched);
    EXPECT_EQ(fetched->format, "png");
}

TEST_F(FacadeUpload, SaveImageReportsTheLibrarysAnswerByHud) {
    auto library = std::make_shared<platform::headless::HeadlessPhotoLibrary>();
    platform::PhotoLibrary::setSharedPhotoLibrary(library);
    std::ofstream(tmp.path() + "/logo.png", std::ios::binary) << pngBytes();
    const std::string url = "file://" + tmp.path() + "/logo.png";

    QuorvaneApiManager::saveImage(url, presenter);
    library->setAccessDenied(true);
    QuorvaneApiManager::saveImage(url, presenter);
    QuorvaneApiManager::saveImage("file://" + tmp.path() + "/none.png", presenter);  // silently nothing
    ASSERT_TRUE(waitUntil([&] { return presenter->huds().size() >= 2; }));
    settle();
    platform::PhotoLibrary::setSharedPhotoLibrary(nullptr);
    EXPECT_EQ(library->requests(), 2);
    ASSERT_EQ(library->savedImages().size(), 1u);
    EXPECT_EQ(library->savedImages()[0]->data, pngBytes());
    std::vector<std::string> texts;
    for (const auto& hud : presenter->huds()) texts.push_back(hud->detailsText());
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (std::vector<std::string>{"保存失败，请检查相册访问权限", "已保存到相册"}));
}

TEST_F(FacadeUpload, ShareSheetCarriesTheItemsAndReportsTheChoice) {
    std::ofstream(tmp.path() + "/logo.png", std::ios::binary) << pngBytes();
    std::optional<std::string> chosen;
    int calls = 0;
    bool completed = false;
    QuorvaneApiManager::shareUniversal(
        {{"title", "Visit report"}, {"logo", "file://" + tmp.path() + "/logo.png"}, {"url", "https://example.org/r/1"}},
        presenter, [&](const std::optional<std::string>& type, bool done) {
            chosen = type;
            completed = done;
            ++calls;
        });
    auto sheet = std::dynamic_pointer_cast<platform::ActivityViewController>(presenter->presentedViewController());
    ASSERT_TRUE(sheet);
    const auto& items = sheet->activityItems();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].text, "Visit report");
    EXPECT_TRUE(items[1].image);
    EXPECT_EQ(items[2].kind, platform::ActivityItem::Kind::URL);
    EXPECT_EQ(items[2].text, "https://example.org/r/1");
    EXPECT_EQ(sheet->excludedActivityTypes().size(), 4u);
    EXPECT_FALSE(sheet->finish(platform::UIActivityTypePrint, true));
    EXPECT_TRUE(sheet->finish("com.tencent.xin.sharetimeline", true));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(chosen, "com.tencent.xin.sharetimeline");
    EXPECT_TRUE(completed);
    EXPECT_FALSE(presenter->presentedViewController());

    QuorvaneApiManager::shareUniversal({{"title", ""}, {"logo", ""}, {"url", ""}}, presenter,
                                       [](const std::optional<std::string>&, bool) {});
    auto empty = std::dynamic_pointer_cast<platform::ActivityViewController>(presenter->presentedViewController());
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->activityItems().empty());
}

}  // namespace
}  // namespace quorvane::test
