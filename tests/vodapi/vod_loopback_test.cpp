// VODOpenApi and VODInnerApi against a loopback test server: how replies are read and what is sent.
#include <gtest/gtest.h>

#include <fstream>

#include "VODUpload/src/VODInnerApi.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODServiceConfig.h"
#include "foundation/http_client.h"
#include "foundation/log.h"
#include "loopback_server.h"
#include "oss/oss_log.h"
#include "platform/headless/headless_platform.h"
#include "reply_recorder.h"

using quorvane::Error;
using quorvane::Value;
using quorvane::VODInnerApi;
using quorvane::VODOpenApi;
using quorvane::VODServiceConfig;
using vodapi_test::deadBase;
using vodapi_test::LoopbackServer;
using vodapi_test::makeRecorder;

namespace {

// The video service at `base`.
VODServiceConfig at(const std::string& base) {
    VODServiceConfig services;
    services.vodBaseUrl = base;
    return services;
}

}  // namespace

TEST(VODOpenApiReply, EachOutcomeReachesTheHandlerExactlyOnceWithItsErrorRecord) {
    LoopbackServer s;
    s.answer("GET", "/forbidden/", 403, R"({"Code":"InvalidSecurityToken.Expired","Message":"expired"})");
    s.answer("GET", "/empty/", 200, "");
    s.answer("GET", "/html/", 200, "<html>oops</html>");
    s.answer("GET", "/fragment/", 200, "42");
    s.answer("GET", "/last-success/", 299, R"({"RequestId":"r"})");  // the edge of the success statuses
    s.answer("GET", "/first-failure/", 300, R"({"Code":"Moved"})");

    auto call = [](const std::string& base) {
        auto recorder = makeRecorder();
        auto task =
            VODOpenApi::refreshUploadVideo("kid", "secret", "token", "vid", "cn-shanghai", recorder->handler(), at(base));
        EXPECT_NE(task, nullptr);
        EXPECT_TRUE(recorder->waitForCall()) << base;
        return recorder;
    };
    auto forbidden = call(s.base() + "forbidden/");
    auto empty = call(s.base() + "empty/");
    auto html = call(s.base() + "html/");
    auto fragment = call(s.base() + "fragment/");
    auto unreachable = call(deadBase());
    auto lastSuccess = call(s.base() + "last-success/");
    auto firstFailure = call(s.base() + "first-failure/");

    ASSERT_EQ(forbidden->errorText(), "vod 403");
    ASSERT_TRUE(forbidden->reply());
    EXPECT_EQ(forbidden->error()->userInfo, *forbidden->reply());
    EXPECT_EQ((*forbidden->reply())["Code"], quorvane::VODOpenApiTokenExpired);
    ASSERT_TRUE(forbidden->response());
    EXPECT_EQ(forbidden->response()->status, 403);

    EXPECT_EQ(empty->errorText(), "Empty Data -10000");
    EXPECT_FALSE(empty->reply());
    EXPECT_TRUE(empty->response());

    EXPECT_EQ(html->errorDomain(), quorvane::kVODJsonErrorDomain);
    EXPECT_FALSE(html->reply());

    EXPECT_FALSE(fragment->error());
    EXPECT_EQ(fragment->reply(), Value(42));

    EXPECT_EQ(unreachable->errorDomain(), quorvane::foundation::kHttpErrorDomain);
    EXPECT_FALSE(unreachable->reply());
    EXPECT_FALSE(unreachable->response());

    EXPECT_FALSE(lastSuccess->error());
    EXPECT_EQ(firstFailure->errorText(), "vod 300");

    // Every handler above has run once; none of them may run again.
    for (auto& r : {forbidden, empty, html, fragment, unreachable, lastSuccess, firstFailure}) EXPECT_EQ(r->calls(), 1);
}

TEST(VODOpenApiReply, CreateCallsSendTheirActionParamsAndLogOnlyWhenSwitchedOn) {
    LoopbackServer s;
    s.answer("GET", "/", 200, R"({"VideoId":"v1"})");
    const auto services = at(s.base());
    quorvane::foundation::LogCapture log;
    auto image = makeRecorder();
    VODOpenApi::createUploadImage("kid", "secret", "token", "cover", "cn-shanghai", {{"ImageExt", "png"}},
                                  image->handler(), services);
    ASSERT_TRUE(image->waitForCall());
    EXPECT_TRUE(log.lines().empty());

    quorvane::oss::OSSLog::enableLog();
    auto withMap = makeRecorder();
    VODOpenApi::createUploadVideo("kid", "secret", "token", "ignored", "/tmp/a.mp4", "cn-shanghai",
                                  {{"Title", "我的 视频*~"}, {"FileSize", 1024}}, withMap->handler(), services);
    ASSERT_TRUE(withMap->waitForCall());
    auto withoutMap = makeRecorder();
    VODOpenApi::createUploadVideo("kid", "secret", "token", "t", "b.mp4", "cn-shanghai", nullptr,
                                  withoutMap->handler(), services);
    ASSERT_TRUE(withoutMap->waitForCall());
    quorvane::oss::OSSLog::disableLog();

    auto seen = s.seen();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].params.find("Action")->second, "CreateUploadImage");
    EXPECT_EQ(seen[0].params.find("ImageType")->second, "cover");
    EXPECT_EQ(seen[0].params.find("ImageExt")->second, "png");
    // Optional parameters replace the action's own.
    const auto& video = seen[1];
    EXPECT_EQ(video.method, "GET");
    EXPECT_EQ(video.params.find("Title")->second, "我的 视频*~");
    EXPECT_NE(video.target.find("Title=%E6%88%91%E7%9A%84%20%E8%A7%86%E9%A2%91%2A~&"), std::string::npos) << video.target;
    EXPECT_EQ(video.params.find("FileSize")->second, "1024");
    EXPECT_EQ(video.params.find("Action")->second, "CreateUploadVideo");
    EXPECT_EQ(video.params.find("SecurityToken")->second, "token");
    EXPECT_EQ(video.params.count("Timestamp"), 0u);
    // Seven common parameters, three of the action, the signature.
    EXPECT_EQ(seen[2].params.size(), 11u);
    EXPECT_EQ(seen[2].params.find("FileName")->second, "b.mp4");
    EXPECT_EQ(withoutMap->reply(), Value({{"VideoId", "v1"}}));

    EXPECT_TRUE(log.contains("VODUpload/src/VODOpenApi [Debug]: request vod video auth "));
    EXPECT_FALSE(log.contains("secret"));
}

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
    void TearDown() override { std::remove(path.c_str()); }

    // Runs one call against `base` and waits for its handler.
    template <typename Start>
    Outcome run(const std::string& base, Start start) {
        auto calls = std::make_shared<vodapi_test::HandlerCalls<std::optional<std::string>, std::optional<Error>>>();
        start(calls->handler(), at(base));
        EXPECT_TRUE(calls->wait()) << base;
        return calls->got ? Outcome{std::get<0>(*calls->got), std::get<1>(*calls->got)} : Outcome{};
    }
    Outcome get(const std::string& base) {
        return run(base, [this](auto done, const VODServiceConfig& services) {
            VODInnerApi::getUploadProgress(*info, "cn-shanghai", done, services);
        });
    }
    Outcome report(const std::string& base) {
        return run(base, [this](auto done, const VODServiceConfig& services) {
            VODInnerApi::reportUploadProgress(
                *info, 0.25f, 1024, 1, "U", "", "A", "cn-shanghai",
                [done](std::optional<Error> e) { done(std::nullopt, std::move(e)); }, services);
        });
    }

    std::string path = ::testing::TempDir() + "vodapi_inner_clip.mp4";
    std::unique_ptr<quorvane::VODInnerFileInfo> info;
};

}  // namespace

// Get takes only a first non-empty VideoId; report ignores the answer; both pass transport errors.
TEST_F(InnerApiTest, GetTakesOnlyAFirstNonEmptyVideoIdAndReportIgnoresTheAnswer) {
    LoopbackServer s;
    s.answer("POST", "/found/", 200, R"({"UploadProgress":{"UploadProgressList":[{"VideoId":"abc"},{"VideoId":"def"}]}})");
    s.answer("POST", "/emptylist/", 200, R"({"UploadProgress":{"UploadProgressList":[]}})");
    s.answer("POST", "/nokey/", 200, R"({"RequestId":"r"})");
    s.answer("POST", "/emptyid/", 200, R"({"UploadProgress":{"UploadProgressList":[{"VideoId":""}]}})");
    s.answer("POST", "/status/", 500, R"({"Code":"InternalError"})");
    s.answer("POST", "/forbidden/", 403, R"({"Code":"Forbidden"})");
    s.answer("POST", "/garbage/", 200, "<xml/>");

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

    EXPECT_FALSE(report(s.base() + "forbidden/").error);
    EXPECT_FALSE(report(s.base() + "garbage/").error);
    unreachable = report(deadBase());
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
