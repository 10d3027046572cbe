// VODInnerApi against a loopback test server: how replies are read and what is sent.
#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

#include "VODUpload/src/VODInnerApi.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODServiceEndpoint.h"
#include "foundation/http_client.h"
#include "loopback_server.h"
#include "platform/headless/headless_platform.h"

using quorvane::Error;
using quorvane::VODInnerApi;
using quorvane::VODServiceEndpoint;
using vodapi_test::deadBase;
using vodapi_test::LoopbackServer;

namespace {

struct Outcome {
    std::optional<std::string> videoId;
    std::optional<Error> error;
};

class InnerApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::ofstream(path, std::ios::binary) << "some video bytes";
        info = std::make_unique<quorvane::VODInnerFileInfo>(path);
    }
    void TearDown() override {
        VODServiceEndpoint::setBaseUrl(std::nullopt);
        std::remove(path.c_str());
    }

    // Runs one call against `base` and waits for its handler.
    template <typename Start>
    Outcome run(const std::string& base, Start start) {
        VODServiceEndpoint::setBaseUrl(base);
        std::mutex mutex;
        std::condition_variable cv;
        std::optional<Outcome> got;
        start([&](std::optional<std::string> videoId, std::optional<Error> error) {
            std::lock_guard<std::mutex> lock(mutex);
            got = Outcome{std::move(videoId), std::move(error)};
            cv.notify_all();
        });
        std::unique_lock<std::mutex> lock(mutex);
        EXPECT_TRUE(cv.wait_for(lock, std::chrono::seconds(60), [&] { return got.has_value(); })) << base;
        return got.value_or(Outcome{});
    }
    Outcome get(const std::string& base) {
        return run(base, [this](auto done) { VODInnerApi::getUploadProgress(*info, "cn-shanghai", done); });
    }
    Outcome report(const std::string& base) {
        return run(base, [this](auto done) {
            VODInnerApi::reportUploadProgress(*info, 0.25f, 1024, 1, "U", "", "A", "cn-shanghai",
                                              [done](std::optional<Error> e) { done(std::nullopt, std::move(e)); });
        });
    }

    std::string path = ::testing::TempDir() + "vodapi_inner_clip.mp4";
    std::unique_ptr<quorvane::VODInnerFileInfo> info;
};

void answer(LoopbackServer& s, const std::string& path, int status, std::string body) {
    s.answer("POST", path, status, std::move(body));
}

}  // namespace

TEST_F(InnerApiTest, GetTakesOnlyAFirstNonEmptyVideoId) {
    LoopbackServer s;
    answer(s, "/found/", 200, R"({"UploadProgress":{"UploadProgressList":[{"VideoId":"abc"},{"VideoId":"def"}]}})");
    answer(s, "/emptylist/", 200, R"({"UploadProgress":{"UploadProgressList":[]}})");
    answer(s, "/nokey/", 200, R"({"RequestId":"r"})");
    answer(s, "/emptyid/", 200, R"({"UploadProgress":{"UploadProgressList":[{"VideoId":""}]}})");
    answer(s, "/status/", 500, R"({"Code":"InternalError"})");
    answer(s, "/garbage/", 200, "<xml/>");

    auto found = get(s.base() + "found/");
    EXPECT_EQ(found.videoId, "abc");
    EXPECT_FALSE(found.error);
    for (const char* quiet : {"emptylist/", "nokey/", "emptyid/", "status/"}) {
        auto outcome = get(s.base() + quiet);
        EXPECT_FALSE(outcome.videoId) << quiet;
        EXPECT_FALSE(outcome.error) << quiet;
    }
    auto garbage = get(s.base() + "garbage/");
    EXPECT_FALSE(garbage.videoId);
    ASSERT_TRUE(garbage.error);
    EXPECT_EQ(garbage.error->domain, quorvane::kVODJsonErrorDomain);

    auto unreachable = get(deadBase());
    ASSERT_TRUE(unreachable.error);
    EXPECT_EQ(unreachable.error->domain, quorvane::foundation::kHttpErrorDomain);

    // Sent as a form with the file's identity as a one-element JSON list.
    auto seen = s.seen();
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen[0].method, "POST");
    EXPECT_EQ(seen[0].contentType, "application/x-www-form-urlencoded");
    auto form = httplib::Params{};
    httplib::detail::parse_query_text(seen[0].body, form);
    ASSERT_TRUE(form.count("UploadInfoList") && form.count("Action")) << seen[0].body;
    EXPECT_EQ(form.find("UploadInfoList")->second, "[" + info->toUrlString() + "]");
    EXPECT_EQ(form.find("Action")->second, "GetUploadProgress");
}

TEST_F(InnerApiTest, ReportIgnoresTheAnswerButPassesTransportErrors) {
    LoopbackServer s;
    answer(s, "/error/", 403, R"({"Code":"Forbidden"})");
    answer(s, "/garbage/", 200, "not json");
    EXPECT_FALSE(report(s.base() + "error/").error);
    EXPECT_FALSE(report(s.base() + "garbage/").error);
    auto unreachable = report(deadBase());
    ASSERT_TRUE(unreachable.error);
    EXPECT_EQ(unreachable.error->domain, quorvane::foundation::kHttpErrorDomain);
}

TEST(VODInnerApiParams, TerminalTypeIsIPadOnlyForAnIPadModel) {
    auto saved = quorvane::platform::Platform::current();
    auto device = quorvane::platform::headless::installHeadlessDevice();
    auto typeFor = [&](const std::string& model) {
        auto facts = device.device->facts();
        facts.model = model;
        device.device->setFacts(facts);
        return VODInnerApi::getTerminalType();
    };
    EXPECT_EQ(typeFor("iPod touch"), "iPhone");
    EXPECT_EQ(typeFor("iPad"), "iPad");
    EXPECT_EQ(typeFor("iPhone (iPad compatible)"), "iPhone");
    EXPECT_EQ(typeFor("Headless"), "iPhone");
    auto params = VODInnerApi::defaultParams();
    EXPECT_EQ(params.size(), 10u);
    EXPECT_EQ(params["TerminalType"], "iPhone");
    EXPECT_NE(params["SignatureNonce"], VODInnerApi::defaultParams()["SignatureNonce"]);

    auto none = saved;
    none.device = nullptr;
    quorvane::platform::Platform::setCurrent(none);
    EXPECT_EQ(VODInnerApi::getTerminalType(), "iPhone");
    quorvane::platform::Platform::setCurrent(saved);
}
