// VODOpenApi and VODInnerApi end to end against the in-process cloud emulator, which verifies
// signatures with its own implementation of the service's rules.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>

#include "VODUpload/src/VODInnerApi.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODServiceConfig.h"
#include "emulator/cloud_emulator.h"
#include "foundation/crypto.h"
#include "foundation/http_client.h"
#include "reply_recorder.h"

using quorvane::Value;
using quorvane::VODInnerApi;
using quorvane::VODOpenApi;
using quorvane::emulator::CloudEmulator;
using vodapi_test::makeRecorder;

namespace {

// One emulator for the suite: stopping it waits for the HTTP client's idle kept-alive connections.
class VODApiEmulator : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        cloudInstance = new CloudEmulator();
        cloudStarted = cloudInstance->start();
    }
    static void TearDownTestSuite() {
        delete cloudInstance;
        cloudInstance = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(cloudStarted);
        cloud.reset();
        services.vodBaseUrl = cloud.endpoint() + "/";
        region = cloud.options().region;
    }

    std::shared_ptr<vodapi_test::ReplyRecorder> createVideo(const quorvane::emulator::StsCredentials& sts,
                                                            const std::string& title) {
        auto recorder = makeRecorder();
        VODOpenApi::createUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, title, "movie.mp4",
                                      region, {{"FileSize", 1234}}, recorder->handler(), services);
        EXPECT_TRUE(recorder->waitForCall());
        return recorder;
    }

    static inline CloudEmulator* cloudInstance = nullptr;
    static inline bool cloudStarted = false;
    CloudEmulator& cloud = *cloudInstance;
    std::string region;
    quorvane::VODServiceConfig services;  // the video service at the emulator
};

std::string replyText(const std::optional<Value>& reply, const char* key) {
    return reply ? quorvane::foundation::stringAt(*reply, key).value_or("") : "";
}

template <typename... Args>
std::shared_ptr<vodapi_test::HandlerCalls<Args...>> calls() {
    return std::make_shared<vodapi_test::HandlerCalls<Args...>>();
}

}  // namespace

TEST_F(VODApiEmulator, CreateAndRefreshWithStsCredentialsIssueUploadTextsUntilTamperedOrExpired) {
    auto sts = cloud.issueSts();
    auto created = createVideo(sts, "假期 a*b~");
    ASSERT_FALSE(created->error()) << created->error()->toString() << " " << created->reply()->dump();
    std::string videoId = replyText(created->reply(), "VideoId");
    EXPECT_FALSE(videoId.empty());
    auto address = quorvane::foundation::base64Decode(replyText(created->reply(), "UploadAddress"));
    ASSERT_TRUE(address);
    EXPECT_NE(address->find("\"Bucket\""), std::string::npos);
    EXPECT_FALSE(replyText(created->reply(), "UploadAuth").empty());
    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].title, "假期 a*b~");

    auto refreshed = makeRecorder();
    VODOpenApi::refreshUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, videoId, region,
                                   refreshed->handler(), services);
    ASSERT_TRUE(refreshed->waitForCall());
    EXPECT_FALSE(refreshed->error());
    EXPECT_EQ(replyText(refreshed->reply(), "VideoId"), videoId);

    auto unknown = makeRecorder();
    VODOpenApi::refreshUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, "no-such-video", region,
                                   unknown->handler(), services);
    ASSERT_TRUE(unknown->waitForCall());
    EXPECT_EQ(unknown->errorText(), "vod 404");
    EXPECT_EQ(replyText(unknown->reply(), "Code"), quorvane::VODOpenApiVideoNotFound);

    // A request changed after signing, and a token past its time, are refused.
    std::string url = VODOpenApi::requestUrl(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, region,
                                             {{"Action", "CreateUploadVideo"}, {"Title", "a"}, {"FileName", "f.mp4"}},
                                             VODOpenApi::randomUUID(), services);
    auto at = url.find("Title=a&");
    ASSERT_NE(at, std::string::npos);
    url.replace(at, 8, "Title=b&");  // changed after signing
    quorvane::foundation::HttpRequest request;
    request.url = url;
    auto result = quorvane::foundation::HttpClient::shared()->sendSync(request);
    ASSERT_TRUE(result.ok());
    EXPECT_GE(result.response.status, 400);
    auto reply = quorvane::foundation::parseJson(result.response.body);
    EXPECT_EQ(replyText(reply, "Code"), "SignatureDoesNotMatch");

    cloud.expireToken(sts.SecurityToken);
    auto expired = createVideo(sts, "late");
    EXPECT_EQ(expired->errorDomain(), "vod");
    EXPECT_EQ(replyText(expired->reply(), "Code"), quorvane::VODOpenApiTokenExpired);
    EXPECT_EQ(cloud.videos().size(), 1u);  // only the first
}

TEST_F(VODApiEmulator, ProgressReportsArriveSignedAndGetFindsTheReportedVideo) {
    std::string path = ::testing::TempDir() + "vodapi_progress_clip.mp4";
    std::ofstream(path, std::ios::binary) << std::string(3000, 'x');
    quorvane::VODInnerFileInfo info(path);

    auto first = calls<std::optional<quorvane::Error>>(), second = calls<std::optional<quorvane::Error>>();
    VODInnerApi::reportUploadProgress(info, 0.5f, 1048576, 3, "UPLOAD-1", "", "ADDR==", region, first->handler(),
                                      services);
    ASSERT_TRUE(first->wait());
    EXPECT_FALSE(std::get<0>(*first->got));
    VODInnerApi::reportUploadProgress(info, 1.0f / 3.0f, 1048576, 4, "UPLOAD-1", "VID-7", "ADDR==", region,
                                      second->handler(), services);
    ASSERT_TRUE(second->wait());

    auto reports = cloud.progressReports();
    ASSERT_EQ(reports.size(), 2u);
    const Value& f = reports[0].fields;
    EXPECT_TRUE(reports[0].signatureValid);
    EXPECT_TRUE(reports[0].authInfoValid);
    // Ten default parameters, the fifteen of the action and the signature; no VideoId.
    EXPECT_EQ(f.size(), 26u) << f.dump();
    EXPECT_FALSE(f.contains("VideoId"));
    for (const auto& [key, value] : {std::pair{"Action", "ReportUploadProgress"}, {"UploadRatio", "0.5"},
                                     {"PartSize", "1048576"}, {"DonePartsCount", "3"}, {"UploadPoint", ""},
                                     {"UploadId", "UPLOAD-1"}, {"UploadAddress", "ADDR=="}, {"Format", "JSON"},
                                     {"Version", "2017-03-14"}, {"Source", "iOSSDK"}, {"BusinessType", "UploadVideo"},
                                     {"AppVersion", "1.6.5"}, {"FileSize", "3000"}, {"FileName", "vodapi_progress_clip.mp4"}})
        EXPECT_EQ(f.value(key, "<absent>"), value) << key;
    EXPECT_EQ(f.value("FileHash", ""), info.fileHash);
    EXPECT_TRUE(std::regex_match(f.value("Timestamp", ""), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d{3}Z)")));
    EXPECT_EQ(reports[1].fields.value("VideoId", ""), "VID-7");
    EXPECT_EQ(reports[1].fields.value("UploadRatio", ""), "0.3333333");
    EXPECT_NE(reports[0].fields.value("SignatureNonce", ""), reports[1].fields.value("SignatureNonce", ""));

    auto get = calls<std::optional<std::string>, std::optional<quorvane::Error>>();
    VODInnerApi::getUploadProgress(info, region, get->handler(), services);
    ASSERT_TRUE(get->wait());
    EXPECT_EQ(std::get<0>(*get->got), "VID-7");
    EXPECT_FALSE(std::get<1>(*get->got));
    auto all = cloud.progressReports();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_TRUE(all[2].signatureValid);
    EXPECT_TRUE(all[2].authInfoValid);
    EXPECT_EQ(all[2].fields.value("AccessKeyId", ""), "QZKP");
    EXPECT_TRUE(std::regex_match(all[2].fields.value("Timestamp", ""), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    std::remove(path.c_str());
}

TEST(VODApiEmulatorTls, HttpsEndpointIsVerifiedAgainstTheGivenCaFile) {
    quorvane::emulator::EmulatorOptions options;
    options.https = true;
    CloudEmulator cloud(options);
    ASSERT_TRUE(cloud.start());
    quorvane::VODServiceConfig services;
    services.vodBaseUrl = cloud.endpoint() + "/";
    auto sts = cloud.issueSts();
    auto send = [&] {
        auto recorder = makeRecorder();
        VODOpenApi::refreshUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, "unknown",
                                       cloud.options().region, recorder->handler(), services);
        EXPECT_TRUE(recorder->waitForCall());
        return recorder;
    };
    // Without the emulator's CA the certificate is not trusted: no request reaches the service.
    auto untrusted = send();
    EXPECT_EQ(untrusted->errorDomain(), quorvane::foundation::kHttpErrorDomain);

    services.caFile = cloud.caFile();
    auto trusted = send();
    EXPECT_EQ(trusted->errorDomain(), "vod");
    EXPECT_EQ(replyText(trusted->reply(), "Code"), quorvane::VODOpenApiVideoNotFound);
}
