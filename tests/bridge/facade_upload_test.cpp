// The façade's multipart upload to a host URL (which answers count as a success and which host paths
// name a file), its routing by "type", and the share and save commands working from an image URL.
#include <filesystem>
#include <fstream>
#include <tuple>

#include "bridge_test_support.h"
#include "foundation/crypto.h"
#include "platform/activity_view_controller.h"
#include "platform/headless/headless_photo_library.h"
#include "platform/headless/headless_presenter.h"
#include "vodapi/loopback_server.h"

namespace quorvane::test {
namespace {

namespace fs = std::filesystem;
using emulator::Fault;

// A 1×1 PNG.
std::string pngBytes() {
    return *foundation::base64Decode(
        "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5ErkJggg==");
}

class FacadeUpload : public BridgeCloudTest {
protected:
    // Hands `params` to the façade's multipart upload and waits for its first answer.
    std::unique_ptr<Answers> upload(const Value& params) {
        auto answers = std::make_unique<Answers>();
        QuorvaneApiManager::uploadFile(params, presenter, answers->success(), answers->fail());
        EXPECT_TRUE(answers->waitForOne());
        settle(50ms);
        return answers;
    }
    std::shared_ptr<platform::headless::HeadlessPresenter> presenter = platform::headless::HeadlessPresenter::create();
};

TEST_F(FacadeUpload, FileGoesToTheHostUrlWithItsFieldsAndKindAndIsThenDeleted) {
    const std::string bytes = randomBytes(50000, 3);
    Answers answers;
    QuorvaneApiManager::uploadFile({{"url", cloud.endpoint() + "/host/upload"}, {"name", "attachment"},
                                    {"filePath", mediaFile("ABC.jpg", bytes)}, {"header", {{"X-Token", "t-1"}}},
                                    {"formData", {{"kind", "receipt"}}}, {"fileType", "image"}},
                                   presenter, answers.success(), answers.fail());
    ASSERT_EQ(presenter->huds().size(), 1u);  // shown while the upload runs
    ASSERT_TRUE(answers.waitForOne());
    ASSERT_EQ(answers.successes().size(), 1u);
    EXPECT_EQ(answers.successes()[0]["msg"], "success");
    EXPECT_TRUE(presenter->huds()[0]->isHidden());
    ASSERT_EQ(cloud.hostUploads().size(), 1u);
    const auto first = cloud.hostUploads()[0];
    EXPECT_EQ(first.fileField, "attachment");
    EXPECT_EQ(first.fileName, ".jpg");  // "image" is not "Image": the default kind
    EXPECT_EQ(first.fileContentType, "image/jpg");
    EXPECT_EQ(first.fileBytes, bytes);
    EXPECT_EQ(first.fields, (Value{{"kind", "receipt"}}));
    bool tokenSent = false;
    for (const auto& [name, value] : first.headers) tokenSent |= name == "X-Token" && value == "t-1";
    EXPECT_TRUE(tokenSent);
    EXPECT_FALSE(fs::exists(localPath("ABC.jpg")));

    // The kind names the file part and its type; the field takes the given name.
    const char* kinds[][4] = {{"Audio", "v.mp3", ".mp3", "audio/mp3"}, {"Video", "clip.mp4", ".mp4", "video/mp4"}};
    for (const auto& [kind, file, suffix, type] : kinds) {
        upload({{"url", cloud.endpoint() + "/host/upload"}, {"name", kind}, {"filePath", mediaFile(file, "bytes")},
                {"fileType", kind}});
        const auto sent = cloud.hostUploads().back();
        EXPECT_EQ(sent.fileName, suffix);
        EXPECT_EQ(sent.fileContentType, type);
        EXPECT_EQ(sent.fileField, kind);
    }
    EXPECT_EQ(cloud.hostUploads().size(), 3u);
    EXPECT_TRUE(cloud.enterpriseCalls().empty());
}

// Only a plain name after the last media separator names a file, and only a dictionary is a success;
// anything else keeps the file for a retry.
TEST_F(FacadeUpload, HostPathsNameAFileOnlyAfterTheMediaSeparatorAndOnlyADictionaryIsASuccess) {
    vodapi_test::LoopbackServer host;
    auto to = [&](const std::string& path, const std::string& filePath) {
        return upload({{"url", host.base() + path}, {"name", "f"}, {"filePath", filePath}});
    };
    host.answer("POST", "/upload", 200, R"({"ok":true})");
    mediaFile("inside.jpg", "inside");
    fs::create_directories(tmp.path() + "/media/sub");
    std::ofstream(tmp.path() + "/media/sub/nested.jpg") << "nested";
    std::ofstream(tmp.path() + "/outside.jpg") << "outside";
    std::ofstream(tmp.path() + "/here.jpg") << "x";  // readable, but not under a media directory
    const std::string paths[] = {"/old/tmp/media/../outside.jpg", "/old/tmp/media/../../outside.jpg",
                                 "/old/tmp/media/sub/nested.jpg", "/old/tmp/media/..", "/old/tmp/media/.",
                                 "/old/tmp/media/", "/sandbox/tmp/media/gone.jpg", tmp.path() + "/here.jpg"};
    for (const auto& path : paths)
        EXPECT_EQ(to("upload", path)->failures(), std::vector<Value>{"FileNotExists"}) << path;
    EXPECT_TRUE(host.seen().empty());
    EXPECT_TRUE(presenter->huds().empty());
    EXPECT_TRUE(fs::exists(tmp.path() + "/outside.jpg"));
    EXPECT_TRUE(fs::exists(tmp.path() + "/media/sub/nested.jpg"));

    // The name after the last separator is what counts; the file that went is deleted after the answer.
    EXPECT_EQ(to("upload", "/a/media/b/media/inside.jpg")->successes().size(), 1u);
    EXPECT_EQ(host.seen().size(), 1u);
    EXPECT_FALSE(fs::exists(localPath("inside.jpg")));

    const std::tuple<const char*, int, const char*> refused[] = {{"array", 200, "[1,2]"}, {"number", 200, "123"},
        {"html", 200, "<html><body>ok</body></html>"}, {"text", 200, "\"done\""}, {"error", 500, "{}"}};
    for (const auto& [path, status, body] : refused) {
        SCOPED_TRACE(path);
        host.answer("POST", std::string("/") + path, status, body);
        const std::string name = std::string(path) + ".jpg";
        auto answers = to(path, mediaFile(name, "bytes"));
        EXPECT_EQ(answers->failures(), std::vector<Value>{"RequestFailed"});
        EXPECT_TRUE(answers->successes().empty());
        EXPECT_TRUE(fs::exists(localPath(name)));
    }
    EXPECT_EQ(host.seen().size(), 6u);
    EXPECT_EQ(presenter->huds().size(), 6u);
    for (const auto& hud : presenter->huds()) EXPECT_TRUE(hud->isHidden());

    host.answer("POST", "/object", 200, R"({"url":"https://files.example/1","n":[1,2]})");
    auto answers = to("object", mediaFile("object.jpg", "bytes"));
    ASSERT_EQ(answers->successes().size(), 1u);
    EXPECT_EQ(answers->successes()[0], (Value{{"url", "https://files.example/1"}, {"n", {1, 2}}}));
    EXPECT_FALSE(fs::exists(localPath("object.jpg")));

    // An upload of a type other than "video" or "image" does nothing.
    auto unknown = ossUpload({{"type", "Video"}, {"files", Value::array()}}, false);
    settle();
    EXPECT_EQ(unknown->count(), 0);
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

TEST_F(FacadeUpload, SaveImageReportsTheLibrarysAnswerByHudAndShareCarriesTheItems) {
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

    // The share sheet carries the items and reports the choice.
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
