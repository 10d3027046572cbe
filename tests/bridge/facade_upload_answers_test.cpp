// The façade's multipart upload: which answers count as a success and which host paths name a file.
#include <filesystem>
#include <fstream>

#include "api/QuorvaneApiManager.h"
#include "bridge_test_support.h"
#include "platform/headless/headless_presenter.h"
#include "vodapi/loopback_server.h"

namespace quorvane::test {
namespace {

namespace fs = std::filesystem;

class FacadeUploadAnswers : public BridgeCloudTest {
protected:
    // Uploads the file named by the host path `filePath` to `url` and waits for the one answer.
    void upload(Answers& answers, const std::string& url, const std::string& filePath) {
        QuorvaneApiManager::uploadFile({{"url", url}, {"name", "f"}, {"filePath", filePath}}, presenter,
                                       answers.success(), answers.fail());
        EXPECT_TRUE(answers.waitForOne());
        settle(50ms);
    }
    std::shared_ptr<platform::headless::HeadlessPresenter> presenter = platform::headless::HeadlessPresenter::create();
    vodapi_test::LoopbackServer host;
};

TEST_F(FacadeUploadAnswers, OnlyADictionaryIsASuccessAndAnythingElseKeepsTheFile) {
    const std::pair<const char*, const char*> refused[] = {
        {"array", "[1,2]"}, {"number", "123"}, {"html", "<html><body>ok</body></html>"}, {"text", "\"done\""}};
    for (const auto& [path, body] : refused) {
        SCOPED_TRACE(path);
        host.answer("POST", std::string("/") + path, 200, body);
        const std::string name = std::string(path) + ".jpg";
        Answers answers;
        upload(answers, host.base() + path, mediaFile(name, "bytes"));
        EXPECT_EQ(answers.failures(), std::vector<Value>{"RequestFailed"});
        EXPECT_TRUE(answers.successes().empty());
        EXPECT_TRUE(fs::exists(localPath(name)));
    }
    EXPECT_EQ(host.seen().size(), 4u);
    for (const auto& hud : presenter->huds()) EXPECT_TRUE(hud->isHidden());

    host.answer("POST", "/object", 200, R"({"url":"https://files.example/1","n":[1,2]})");
    Answers answers;
    upload(answers, host.base() + "object", mediaFile("object.jpg", "bytes"));
    ASSERT_EQ(answers.successes().size(), 1u);
    EXPECT_EQ(answers.successes()[0], (Value{{"url", "https://files.example/1"}, {"n", {1, 2}}}));
    EXPECT_FALSE(fs::exists(localPath("object.jpg")));
}

TEST_F(FacadeUploadAnswers, OnlyAPlainNameAfterTheMediaSeparatorIsAFile) {
    host.answer("POST", "/upload", 200, R"({"ok":true})");
    mediaFile("inside.jpg", "inside");
    fs::create_directories(tmp.path() + "/media/sub");
    std::ofstream(tmp.path() + "/media/sub/nested.jpg") << "nested";
    std::ofstream(tmp.path() + "/outside.jpg") << "outside";
    const std::string paths[] = {"/old/tmp/media/../outside.jpg", "/old/tmp/media/../../outside.jpg",
                                 "/old/tmp/media/sub/nested.jpg", "/old/tmp/media/..", "/old/tmp/media/.",
                                 "/old/tmp/media/"};
    for (const auto& path : paths) {
        SCOPED_TRACE(path);
        Answers answers;
        upload(answers, host.base() + "upload", path);
        EXPECT_EQ(answers.failures(), std::vector<Value>{"FileNotExists"});
    }
    EXPECT_TRUE(host.seen().empty());
    EXPECT_TRUE(presenter->huds().empty());
    EXPECT_TRUE(fs::exists(tmp.path() + "/outside.jpg"));
    EXPECT_TRUE(fs::exists(tmp.path() + "/media/sub/nested.jpg"));

    // The name after the last separator is what counts.
    Answers answers;
    upload(answers, host.base() + "upload", "/a/media/b/media/inside.jpg");
    EXPECT_EQ(answers.successes().size(), 1u);
    EXPECT_EQ(host.seen().size(), 1u);
    EXPECT_FALSE(fs::exists(localPath("inside.jpg")));  // the file that went, deleted after the answer
}

}  // namespace
}  // namespace quorvane::test
