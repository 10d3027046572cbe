// VODOpenApi with ACS3-HMAC-SHA256 signatures against the in-process cloud emulator, which checks
// them with its own implementation of the service's rules. (Refusals: tests/emulator/vod_acs3_test.cpp
// for the codes, the engine's ACS3 tests for how a client reports them.)
#include <gtest/gtest.h>

#include "VODUpload/src/VODOpenApi.h"
#include "emulator/cloud_emulator.h"
#include "reply_recorder.h"

using quorvane::Value;
using quorvane::VODOpenApi;
using quorvane::VODServiceConfig;
using quorvane::VODSignatureVersion;
using quorvane::emulator::CloudEmulator;
using vodapi_test::makeRecorder;
using vodapi_test::ReplyRecorder;

namespace {

// One emulator for the suite: stopping it waits for the HTTP client's idle kept-alive connections.
class VODAcs3Emulator : public ::testing::Test {
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
        config.vodBaseUrl = cloud.endpoint() + "/";
        config.signatureVersion = VODSignatureVersion::Acs3HmacSha256;
        region = cloud.options().region;
        sts = cloud.issueSts();
    }

    static std::string text(const std::shared_ptr<ReplyRecorder>& r, const char* key) {
        return r->reply ? r->reply->value(key, "") : "";
    }

    static inline CloudEmulator* cloudInstance = nullptr;
    static inline bool cloudStarted = false;
    CloudEmulator& cloud = *cloudInstance;
    VODServiceConfig config;
    std::string region;
    quorvane::emulator::StsCredentials sts;
};

TEST_F(VODAcs3Emulator, CreateRefreshAndCreateImageAreAccepted) {
    auto created = makeRecorder();
    VODOpenApi::createUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, "a clip", "movie.mp4",
                                  region, {{"FileSize", 1234}, {"Description", "x & y"}}, created->handler(), config);
    ASSERT_TRUE(created->waitForCall());
    ASSERT_FALSE(created->error) << created->error->toString();
    std::string videoId = text(created, "VideoId");
    ASSERT_FALSE(videoId.empty());
    ASSERT_EQ(cloud.videos().size(), 1u);
    EXPECT_EQ(cloud.videos()[0].params.value("Description", ""), "x & y");

    auto refreshed = makeRecorder();
    VODOpenApi::refreshUploadVideo(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, videoId, region,
                                   refreshed->handler(), config);
    ASSERT_TRUE(refreshed->waitForCall());
    ASSERT_FALSE(refreshed->error) << refreshed->error->toString();
    EXPECT_EQ(text(refreshed, "VideoId"), videoId);
    EXPECT_EQ(text(refreshed, "UploadAddress"), text(created, "UploadAddress"));
    EXPECT_NE(text(refreshed, "UploadAuth"), text(created, "UploadAuth"));

    auto image = makeRecorder();
    VODOpenApi::createUploadImage(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, "cover", region,
                                  {{"ImageExt", "jpg"}}, image->handler(), config);
    ASSERT_TRUE(image->waitForCall());
    ASSERT_FALSE(image->error) << image->error->toString();
    EXPECT_FALSE(text(image, "ImageId").empty());

    // All three went the ACS3 way: nothing of the RPC form's signature in their queries.
    auto requests = cloud.requests();
    ASSERT_EQ(requests.size(), 3u);
    for (const auto& r : requests) {
        EXPECT_EQ(r.header("Authorization").value_or("").rfind("ACS3-HMAC-SHA256 Credential=", 0), 0u);
        EXPECT_EQ(r.query.find("Signature"), std::string::npos) << r.query;
        EXPECT_EQ(r.status, 200) << r.operation;
    }
}

}  // namespace
