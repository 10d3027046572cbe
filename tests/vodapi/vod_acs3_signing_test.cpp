// ACS3-HMAC-SHA256 signing of VOD OpenAPI requests, checked against the worked example the service
// publishes; and the HMAC-SHA1 form staying the default.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "VODUpload/src/VODAcs3Signer.h"
#include "VODUpload/src/VODOpenApi.h"

using quorvane::Value;
using quorvane::VODAcs3Request;
using quorvane::VODAcs3Signer;
using quorvane::VODOpenApi;
using quorvane::VODServiceConfig;
using quorvane::VODSignatureVersion;

namespace {

const char* const kEmptyBodyHash = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::map<std::string, std::string> headerMap(const quorvane::foundation::Headers& headers) {
    std::map<std::string, std::string> out;
    for (const auto& [name, value] : headers) EXPECT_TRUE(out.emplace(name, value).second) << "twice: " << name;
    return out;
}

VODServiceConfig acs3Config(std::optional<std::string> baseUrl) {
    VODServiceConfig config;
    config.vodBaseUrl = std::move(baseUrl);
    config.signatureVersion = VODSignatureVersion::Acs3HmacSha256;
    return config;
}

}  // namespace

// The fixed values of the V3 signature documentation's example (RunInstances, POST, empty body) and
// the canonical request, string to sign and Authorization it publishes; nothing here computed them.
// The query is given unsorted, as callers build it.
TEST(VODAcs3Signing, MatchesThePublishedExample) {
    VODAcs3Request request;
    request.method = "POST";
    request.host = "ecs.cn-shanghai.aliyuncs.com";
    request.action = "RunInstances";
    request.version = "2014-05-26";
    request.date = "2023-10-26T10:22:32Z";
    request.nonce = "3156853299f313e23d1673dc12e1703d";
    request.query = {{"RegionId", "cn-shanghai"}, {"ImageId", "win2019_1809_x64_dtc_zh-cn_40G_alibase_20230811.vhd"}};
    auto signedRequest = VODAcs3Signer::sign(request, "YourAccessKeyId", "YourAccessKeySecret");

    EXPECT_EQ(signedRequest.canonicalRequest,
              "POST\n/\nImageId=win2019_1809_x64_dtc_zh-cn_40G_alibase_20230811.vhd&RegionId=cn-shanghai\n"
              "host:ecs.cn-shanghai.aliyuncs.com\nx-acs-action:RunInstances\n"
              "x-acs-content-sha256:e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855\n"
              "x-acs-date:2023-10-26T10:22:32Z\nx-acs-signature-nonce:3156853299f313e23d1673dc12e1703d\n"
              "x-acs-version:2014-05-26\n\n"
              "host;x-acs-action;x-acs-content-sha256;x-acs-date;x-acs-signature-nonce;x-acs-version\n"
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(signedRequest.stringToSign,
              "ACS3-HMAC-SHA256\n7ea06492da5221eba5297e897ce16e55f964061054b7695beedaac1145b1e259");
    EXPECT_EQ(headerMap(signedRequest.headers)["Authorization"],
              "ACS3-HMAC-SHA256 Credential=YourAccessKeyId,SignedHeaders=host;x-acs-action;x-acs-content-sha256;"
              "x-acs-date;x-acs-signature-nonce;x-acs-version,"
              "Signature=06563a9e1b43f5dfe96b81484da74bceab24a1d853912eee15083a6f0f3283c0");
}

TEST(VODAcs3Signing, OpenApiRequestsCarryTheCommonValuesInSignedHeaders) {
    const std::string secret = "s3cr3t-Value", token = "CAIS/token+=";
    Value params = {{"Action", "CreateUploadVideo"}, {"Title", "my clip~"}, {"FileName", "a.mp4"}, {"FileSize", 1234}};
    auto request = VODOpenApi::signedRequest("LTAIkey", secret, token, "cn-shanghai", params, "nonce-1",
                                             "2024-01-02T03:04:05Z", acs3Config("http://127.0.0.1:8080"));
    EXPECT_EQ(request.method, "GET");
    // Only the action's own parameters, sorted and encoded; no Action, key, nonce or signature.
    EXPECT_EQ(request.url, "http://127.0.0.1:8080/?FileName=a.mp4&FileSize=1234&Title=my%20clip~");
    auto headers = headerMap(request.headers);
    EXPECT_EQ(headers["host"], "127.0.0.1:8080");
    EXPECT_EQ(headers["x-acs-action"], "CreateUploadVideo");
    EXPECT_EQ(headers["x-acs-version"], "2017-03-21");
    EXPECT_EQ(headers["x-acs-date"], "2024-01-02T03:04:05Z");
    EXPECT_EQ(headers["x-acs-signature-nonce"], "nonce-1");
    EXPECT_EQ(headers["x-acs-security-token"], token);
    EXPECT_EQ(headers["x-acs-content-sha256"], kEmptyBodyHash);
    EXPECT_TRUE(std::regex_match(
        headers["Authorization"],
        std::regex("ACS3-HMAC-SHA256 Credential=LTAIkey,SignedHeaders=host;x-acs-action;x-acs-content-sha256;"
                   "x-acs-date;x-acs-security-token;x-acs-signature-nonce;x-acs-version,Signature=[0-9a-f]{64}")))
        << headers["Authorization"];
    EXPECT_EQ(request.url.find(secret), std::string::npos);
    for (const auto& [name, value] : request.headers) EXPECT_EQ(value.find(secret), std::string::npos) << name;

    // Without a token (a long-term key) the header is neither sent nor signed; the regional host is named.
    auto plain = VODOpenApi::signedRequest("LTAIkey", secret, "", "cn-beijing", params, "nonce-2",
                                           "2024-01-02T03:04:05Z", acs3Config(std::nullopt));
    auto plainHeaders = headerMap(plain.headers);
    EXPECT_EQ(plainHeaders.count("x-acs-security-token"), 0u);
    EXPECT_EQ(plainHeaders["Authorization"].find("security-token"), std::string::npos);
    EXPECT_EQ(plainHeaders["host"], "vod.cn-beijing.aliyuncs.com");
    EXPECT_EQ(plain.url.rfind("https://vod.cn-beijing.aliyuncs.com/?", 0), 0u) << plain.url;
}

TEST(VODAcs3Signing, HmacSha1StaysTheDefaultForm) {
    VODServiceConfig config;
    config.vodBaseUrl = "http://127.0.0.1:8080/";
    ASSERT_EQ(config.signatureVersion, VODSignatureVersion::HmacSha1);
    Value params = {{"Action", "RefreshUploadVideo"}, {"VideoId", "abc"}};
    auto request = VODOpenApi::signedRequest("LTAIkey", "secret", "token", "cn-shanghai", params, "nonce-1",
                                             "2024-01-02T03:04:05Z", config);
    EXPECT_EQ(request.url,
              VODOpenApi::requestUrl("LTAIkey", "secret", "token", "cn-shanghai", params, "nonce-1", config));
    EXPECT_NE(request.url.find("SignatureMethod=HMAC-SHA1"), std::string::npos);
    EXPECT_TRUE(request.headers.empty());
}
