// Reply handling and request building of VODOpenApi, over real HTTP on loopback.
#include <gtest/gtest.h>

#include "oss/oss_log.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODServiceEndpoint.h"
#include "foundation/log.h"
#include "loopback_server.h"
#include "reply_recorder.h"

using quorvane::Value;
using quorvane::VODOpenApi;
using quorvane::VODServiceEndpoint;
using vodapi_test::LoopbackServer;
using vodapi_test::makeRecorder;

namespace {

struct EndpointGuard {
    explicit EndpointGuard(const std::string& base) { VODServiceEndpoint::setBaseUrl(base); }
    ~EndpointGuard() { VODServiceEndpoint::setBaseUrl(std::nullopt); }
};

void serve(LoopbackServer& s, const std::string& path, int status, std::string body) {
    s.answer("GET", path, status, std::move(body));
}

}  // namespace

TEST(VODOpenApiReply, EachOutcomeReachesTheHandlerExactlyOnceWithItsErrorRecord) {
    LoopbackServer s;
    serve(s, "/forbidden/", 403, R"({"Code":"InvalidSecurityToken.Expired","Message":"expired"})");
    serve(s, "/empty/", 200, "");
    serve(s, "/html/", 200, "<html>oops</html>");
    serve(s, "/fragment/", 200, "42");
    serve(s, "/last-success/", 299, R"({"RequestId":"r"})");  // the edge of the success statuses
    serve(s, "/first-failure/", 300, R"({"Code":"Moved"})");

    auto call = [](const std::string& base) {
        EndpointGuard endpoint(base);
        auto recorder = makeRecorder();
        auto task = VODOpenApi::refreshUploadVideo("kid", "secret", "token", "vid", "cn-shanghai", recorder->handler());
        EXPECT_NE(task, nullptr);
        EXPECT_TRUE(recorder->waitForCall()) << base;
        return recorder;
    };
    auto forbidden = call(s.base() + "forbidden/");
    auto empty = call(s.base() + "empty/");
    auto html = call(s.base() + "html/");
    auto fragment = call(s.base() + "fragment/");
    auto unreachable = call(vodapi_test::deadBase());
    auto lastSuccess = call(s.base() + "last-success/");
    auto firstFailure = call(s.base() + "first-failure/");

    ASSERT_TRUE(forbidden->error);
    EXPECT_EQ(forbidden->error->domain, "vod");
    EXPECT_EQ(forbidden->error->code, 403);
    ASSERT_TRUE(forbidden->reply);
    EXPECT_EQ(forbidden->error->userInfo, *forbidden->reply);
    EXPECT_EQ((*forbidden->reply)["Code"], quorvane::VODOpenApiTokenExpired);
    ASSERT_TRUE(forbidden->response);
    EXPECT_EQ(forbidden->response->status, 403);

    ASSERT_TRUE(empty->error);
    EXPECT_EQ(empty->error->domain, "Empty Data");
    EXPECT_EQ(empty->error->code, -10000);
    EXPECT_FALSE(empty->reply);
    EXPECT_TRUE(empty->response);

    ASSERT_TRUE(html->error);
    EXPECT_EQ(html->error->domain, quorvane::kVODJsonErrorDomain);
    EXPECT_FALSE(html->reply);

    EXPECT_FALSE(fragment->error);
    EXPECT_EQ(fragment->reply, Value(42));

    ASSERT_TRUE(unreachable->error);
    EXPECT_EQ(unreachable->error->domain, quorvane::foundation::kHttpErrorDomain);
    EXPECT_FALSE(unreachable->reply);
    EXPECT_FALSE(unreachable->response);

    EXPECT_FALSE(lastSuccess->error);
    ASSERT_TRUE(firstFailure->error);
    EXPECT_EQ(firstFailure->error->code, 300);

    // Every handler above has run once; none of them may run again.
    for (auto& r : {forbidden, empty, html, fragment, unreachable, lastSuccess, firstFailure}) EXPECT_EQ(r->calls(), 1);
}

TEST(VODOpenApiReply, CreateVideoSendsActionParamsWithOptionalOnesReplacingThem) {
    LoopbackServer s;
    serve(s, "/", 200, R"({"VideoId":"v1"})");
    EndpointGuard endpoint(s.base());
    quorvane::foundation::LogCapture log;
    quorvane::oss::OSSLog::enableLog();

    auto withMap = makeRecorder();
    VODOpenApi::createUploadVideo("kid", "secret", "token", "ignored", "/tmp/a.mp4", "cn-shanghai",
                                  {{"Title", "我的 视频*~"}, {"FileSize", 1024}}, withMap->handler());
    ASSERT_TRUE(withMap->waitForCall());
    auto withoutMap = makeRecorder();
    VODOpenApi::createUploadVideo("kid", "secret", "token", "t", "b.mp4", "cn-shanghai", nullptr,
                                  withoutMap->handler());
    ASSERT_TRUE(withoutMap->waitForCall());
    quorvane::oss::OSSLog::disableLog();

    auto seen = s.seen();
    ASSERT_EQ(seen.size(), 2u);
    const auto& first = seen[0];
    EXPECT_EQ(first.method, "GET");
    EXPECT_EQ(first.params.find("Title")->second, "我的 视频*~");
    EXPECT_NE(first.target.find("Title=%E6%88%91%E7%9A%84%20%E8%A7%86%E9%A2%91%2A~&"), std::string::npos)
        << first.target;
    EXPECT_EQ(first.params.find("FileSize")->second, "1024");
    EXPECT_EQ(first.params.find("Action")->second, "CreateUploadVideo");
    EXPECT_EQ(first.params.find("SecurityToken")->second, "token");
    EXPECT_EQ(first.params.count("Timestamp"), 0u);
    // Seven common parameters, three of the action, the signature.
    EXPECT_EQ(seen[1].params.size(), 11u);
    EXPECT_EQ(seen[1].params.find("FileName")->second, "b.mp4");
    EXPECT_EQ(withoutMap->reply, Value({{"VideoId", "v1"}}));

    EXPECT_TRUE(log.contains("VODUpload/src/VODOpenApi [Debug]: request vod video auth "));
    EXPECT_FALSE(log.contains("secret"));
}

TEST(VODOpenApiReply, CreateImageSendsImageTypeAndStaysSilentWithLoggingOff) {
    LoopbackServer s;
    serve(s, "/", 200, R"({"ImageURL":"http://x/y.png"})");
    EndpointGuard endpoint(s.base());
    quorvane::foundation::LogCapture log;
    auto recorder = makeRecorder();
    VODOpenApi::createUploadImage("kid", "secret", "token", "cover", "cn-shanghai", {{"ImageExt", "png"}},
                                  recorder->handler());
    ASSERT_TRUE(recorder->waitForCall());
    auto seen = s.seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].params.find("Action")->second, "CreateUploadImage");
    EXPECT_EQ(seen[0].params.find("ImageType")->second, "cover");
    EXPECT_EQ(seen[0].params.find("ImageExt")->second, "png");
    EXPECT_TRUE(log.lines().empty());
}
