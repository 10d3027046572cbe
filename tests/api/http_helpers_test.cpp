// The request helpers against a real HTTP server on loopback.
#include <gtest/gtest.h>

#include <atomic>

#include "api/QuorvaneApiManager.h"
#include "foundation/HttpSessionManager.h"
#include "api_test_support.h"
#include "support/net_faults.h"
#include "upload_bridge/ApiOSSUploadTool.h"

namespace quorvane {
namespace {

using testing::LoopbackServer;

struct Outcome {
    std::atomic<int> calls{0};
    Value data;
    std::string status;
    std::optional<Error> error;

    ReponseData callback() {
        return [this](const Value& d, const std::string& s, const std::optional<Error>& e) {
            data = d;
            status = s;
            error = e;
            ++calls;
        };
    }
    // Waits for the callback, then checks that no second one follows.
    void waitExactlyOnce() {
        ASSERT_TRUE(testing::waitFor([this] { return calls > 0; }));
        testing::settle();
        EXPECT_EQ(calls, 1);
    }
};

enum class Helper { Get, RawPost, Multipart };

void call(Helper helper, const std::string& url, Outcome& out) {
    switch (helper) {
    case Helper::Get: ApiOSSUploadTool::getRequestWithUrl(url, Value::object(), out.callback()); break;
    case Helper::RawPost:
        ApiOSSUploadTool::postRequestWithUrl(url, Value::object(), "{}", true, Value::object(), out.callback());
        break;
    case Helper::Multipart:
        QuorvaneApiManager::postRequestWithUrl(url, Value::object(), "bytes", "file", "a.jpg", MediaTypeImage,
                                               Value::object(), out.callback(), nullptr);
        break;
    }
}

constexpr Helper kAllHelpers[] = {Helper::Get, Helper::RawPost, Helper::Multipart};

TEST(RequestHelpers, EmptyHeaderValuesAreSkippedByRawPostOnly) {
    const Value header{{"Authorization", ""}, {"X-Token", "t1"}};
    testing::RawCaptureServer rawServer, multipartServer;
    Outcome raw, multipart;
    ApiOSSUploadTool::postRequestWithUrl(rawServer.url(), Value::object(), "{}", false, header, raw.callback());
    QuorvaneApiManager::postRequestWithUrl(multipartServer.url(), Value::object(), "b", "file", "f.jpg", MediaTypeImage,
                                           header, multipart.callback(), nullptr);
    raw.waitExactlyOnce();
    multipart.waitExactlyOnce();
    EXPECT_EQ(raw.status, "success");
    EXPECT_EQ(multipart.status, "success");
    EXPECT_NE(rawServer.head().find("\r\nX-Token: t1\r\n"), std::string::npos) << rawServer.head();
    EXPECT_EQ(rawServer.head().find("Authorization"), std::string::npos) << rawServer.head();
    EXPECT_NE(multipartServer.head().find("\r\nAuthorization:"), std::string::npos) << multipartServer.head();
    EXPECT_NE(multipartServer.head().find("\r\nX-Token: t1\r\n"), std::string::npos);
}

TEST(RawPost, SendsTheCallersBytesWithLangAndJsonType) {
    LoopbackServer server;
    Outcome out;
    Value header{{"X-Token", "t1"}};
    ApiOSSUploadTool::postRequestWithUrl(server.url("/ticket?access_token=a"), Value::object(), R"({"file_name":"v.mp4"})",
                                         true, header, out.callback());
    out.waitExactlyOnce();
    EXPECT_EQ(out.status, "success");
    auto got = server.received().at(0);
    EXPECT_EQ(got.method, "POST");
    EXPECT_EQ(got.body, R"({"file_name":"v.mp4"})");
    EXPECT_EQ(got.params.find("access_token")->second, "a");
    EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");
    EXPECT_EQ(got.headers.find("Content-Type")->second, "application/json");
    EXPECT_EQ(got.headers.find("X-Token")->second, "t1");
}

TEST(GetRequest, PutsParametersInTheQueryAndMarksJson) {
    LoopbackServer server;
    server.answer(200, R"({"bucket":"b"})");
    Outcome out;
    ApiOSSUploadTool::getRequestWithUrl(server.url("/enterprise-api/oss/config"),
                                        Value{{"access_token", "tok en"}, {"n", 5}}, out.callback());
    out.waitExactlyOnce();
    EXPECT_EQ(out.status, "success");
    EXPECT_EQ(out.data, (Value{{"bucket", "b"}}));
    auto got = server.received().at(0);
    EXPECT_EQ(got.path, "/enterprise-api/oss/config");
    EXPECT_EQ(got.params.find("access_token")->second, "tok en");
    EXPECT_EQ(got.params.find("n")->second, "5");
    EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");
    EXPECT_EQ(got.headers.find("Content-Type")->second, "application/json");
}

TEST(MultipartPost, FilePartTypeFollowsMediaTypeWithFieldsAndHeaders) {
    LoopbackServer server;
    const std::pair<int, const char*> cases[] = {{0, "image/jpg"}, {1, "video/mp4"}, {2, "audio/mp3"}, {3, nullptr}};
    for (auto [mediaType, contentType] : cases) {
        Outcome out;
        std::atomic<int> progressCalls{0};
        std::atomic<std::int64_t> lastCompleted{0}, lastTotal{0};
        QuorvaneApiManager::postRequestWithUrl(
            server.url("/upload"), Value{{"userId", "u1"}}, "FILEBYTES", "file", "f.bin", mediaType,
            Value{{"X-App", "demo"}}, out.callback(), [&](const Progress& p) {
                lastCompleted = p.completedUnitCount;
                lastTotal = p.totalUnitCount;
                ++progressCalls;
            });
        out.waitExactlyOnce();
        EXPECT_EQ(out.status, "success") << mediaType;
        auto got = server.received().back();
        EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");
        EXPECT_EQ(got.headers.find("X-App")->second, "demo");
        EXPECT_EQ(got.headers.find("Content-Type")->second.rfind("multipart/form-data; boundary=", 0), 0u);
        ASSERT_EQ(got.parts.count("userId"), 1u);
        EXPECT_EQ(got.parts.find("userId")->second.content, "u1");
        if (!contentType) {
            EXPECT_EQ(got.parts.count("file"), 0u);
            continue;
        }
        ASSERT_EQ(got.parts.count("file"), 1u) << mediaType;
        const auto& file = got.parts.find("file")->second;
        EXPECT_EQ(file.content, "FILEBYTES");
        EXPECT_EQ(file.filename, "f.bin");
        EXPECT_EQ(file.content_type, contentType);
        EXPECT_GT(progressCalls, 0);
        EXPECT_EQ(lastCompleted, lastTotal);
    }
}

TEST(RequestHelpers, ErrorStatusBodyReachesOnlyTheRawPost) {
    LoopbackServer server;
    server.answer(500, R"({"code":"E42","msg":"broken"})");
    for (Helper helper : kAllHelpers) {
        Outcome out;
        call(helper, server.url("/fail"), out);
        out.waitExactlyOnce();
        EXPECT_EQ(out.status, "failure");
        ASSERT_TRUE(out.error.has_value());
        EXPECT_EQ(out.error->userInfo.value("statusCode", 0), 500);
        if (helper == Helper::RawPost) EXPECT_EQ(out.data, (Value{{"code", "E42"}, {"msg", "broken"}}));
        else EXPECT_TRUE(out.data.is_null());
    }
}

TEST(RequestHelpers, BareFragmentParsesAndNonJsonGivesNullSuccess) {
    LoopbackServer server;
    for (Helper helper : kAllHelpers) {
        server.answer(200, "123");
        Outcome number;
        call(helper, server.url(), number);
        number.waitExactlyOnce();
        EXPECT_EQ(number.status, "success");
        EXPECT_EQ(number.data, Value(123));
        EXPECT_FALSE(number.error.has_value());

        server.answer(200, "<html>not json</html>");
        Outcome html;
        call(helper, server.url(), html);
        html.waitExactlyOnce();
        EXPECT_EQ(html.status, "success");
        EXPECT_TRUE(html.data.is_null());
    }
    for (const auto& got : server.received()) EXPECT_EQ(got.headers.find("lang")->second, "zh_cn");
}

TEST(RequestHelpers, UnreachableHostOrBadUrlFailsExactlyOnce) {
    const std::string urls[] = {testing::unreachableUrl(), "", "not a url"};
    for (const auto& url : urls)
        for (Helper helper : kAllHelpers) {
            Outcome out;
            call(helper, url, out);
            out.waitExactlyOnce();
            EXPECT_EQ(out.status, "failure") << url;
            EXPECT_TRUE(out.data.is_null());
            EXPECT_TRUE(out.error.has_value());
        }
}

TEST(RequestHelpers, ServerThatNeverAnswersFailsExactlyOnce) {
    test::SilentServer silent;
    HttpSessionManager::setDefaultTimeoutInterval(1);
    for (Helper helper : kAllHelpers) {
        Outcome out;
        call(helper, silent.endpoint() + "/stalled", out);
        out.waitExactlyOnce();
        EXPECT_EQ(out.status, "failure");
        ASSERT_TRUE(out.error.has_value());
        EXPECT_EQ(out.error->code, 28);  // the transport's time-out
    }
    HttpSessionManager::setDefaultTimeoutInterval(0);
    EXPECT_EQ(HttpSessionManager::defaultTimeoutInterval(), HttpSessionManager::kDefaultTimeoutInterval);
}

TEST(RequestHelpers, AbsentCallbacksAreHarmless) {
    LoopbackServer server;
    ApiOSSUploadTool::getRequestWithUrl(server.url(), nullptr, nullptr);
    ApiOSSUploadTool::postRequestWithUrl(server.url(), nullptr, "", false, nullptr, nullptr);
    QuorvaneApiManager::postRequestWithUrl(server.url(), nullptr, "", "", "", 0, nullptr, nullptr, nullptr);
    EXPECT_TRUE(testing::waitFor([&] { return server.received().size() == 3; }));
    testing::settle();
}

}  // namespace
}  // namespace quorvane
