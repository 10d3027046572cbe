// Request signing of the VOD OpenAPI, checked against the service's published signature vectors: the
// HMAC-SHA1 RPC form (the default) and ACS3-HMAC-SHA256.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <vector>

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

// The expected signatures are the values published in the VOD/ECS RPC signature documentation for
// these exact parameter sets (GET method); nothing here computed them. Our canonical query is built
// by getParamsString over the same parameters (in scrambled insertion order), so the check covers
// encoding, ordering, the string to sign, the "&"-suffixed key and the HMAC.
TEST(VODOpenApiSigning, MatchesPublishedSignatureVectors) {
    Value describeRegions = {{"Version", "2014-05-26"},       {"Timestamp", "2016-02-23T12:46:24Z"},
                             {"SignatureVersion", "1.0"},     {"AccessKeyId", "testid"},
                             {"SignatureMethod", "HMAC-SHA1"}, {"Format", "XML"},
                             {"SignatureNonce", "3ee8c1b8-83d3-44af-a94f-4e0ad82fd6cf"},
                             {"Action", "DescribeRegions"}};
    Value playAuth = {{"VideoId", "5aed81b74ba84920be578cdfe004af4b"}, {"Timestamp", "2017-10-10T12:02:54Z"},
                      {"SignatureNonce", "8f8a035d-6496-4268-afd4-67c22837e38d"}, {"Format", "JSON"},
                      {"AccessKeyId", "testAccessKeyId"},  {"Version", "2017-03-21"},
                      {"SignatureMethod", "HMAC-SHA1"},     {"SignatureVersion", "1.0"},
                      {"Action", "GetVideoPlayAuth"}};

    // Our sort is locale-aware and case-insensitive on whole pairs; for these keys it must agree with the
    // service's byte order of names, or the service would reject our signatures.
    for (const auto& [params, secret, query, expected] :
         {std::tuple{describeRegions, "testsecret",
                     "AccessKeyId=testid&Action=DescribeRegions&Format=XML&SignatureMethod=HMAC-SHA1&SignatureNonce="
                     "3ee8c1b8-83d3-44af-a94f-4e0ad82fd6cf&SignatureVersion=1.0&Timestamp=2016-02-23T12%3A46%3A24Z"
                     "&Version=2014-05-26",
                     "OLeaidS1JvxuMvnyHOwuJ+uX5qY="},
          std::tuple{playAuth, "testAccessKeySecret",
                     "AccessKeyId=testAccessKeyId&Action=GetVideoPlayAuth&Format=JSON&SignatureMethod=HMAC-SHA1"
                     "&SignatureNonce=8f8a035d-6496-4268-afd4-67c22837e38d&SignatureVersion=1.0&Timestamp=2017-10-10T"
                     "12%3A02%3A54Z&Version=2017-03-21&VideoId=5aed81b74ba84920be578cdfe004af4b",
                     "Ibgh7y8Vp47LBuAsf5Xhi1SvDss="}}) {
        EXPECT_EQ(VODOpenApi::getParamsString(params), query);
        EXPECT_EQ(VODOpenApi::signature(secret, query), expected) << query;
    }
}

TEST(VODOpenApiSigning, QueryEncodingSortingStringToSignAndKey) {
    // Unreserved kept, the rest escaped in upper hex.
    EXPECT_EQ(VODOpenApi::percentEncode("a*b+c d"), "a%2Ab%2Bc%20d");
    EXPECT_EQ(VODOpenApi::percentEncode("Az09-._~"), "Az09-._~");
    EXPECT_EQ(VODOpenApi::percentEncode(":/?#[]@!$&'()*+,;=%"),
              "%3A%2F%3F%23%5B%5D%40%21%24%26%27%28%29%2A%2B%2C%3B%3D%25");
    EXPECT_EQ(VODOpenApi::percentEncode("视频"), "%E8%A7%86%E9%A2%91");
    EXPECT_EQ(VODOpenApi::percentEncode(1048576), "1048576");
    EXPECT_EQ(VODOpenApi::percentEncode(-3), "-3");
    // Sorted case-insensitively on whole pairs: a byte-order sort would put "Gamma" before "beta".
    EXPECT_EQ(VODOpenApi::getParamsString({{"beta", "1"}, {"Gamma", "3"}, {"Alpha", "2"}, {"delta", "4 4"}}),
              "Alpha=2&beta=1&delta=4%204&Gamma=3");
    EXPECT_EQ(VODOpenApi::getParamsString(Value::object()), "");
    std::string query = VODOpenApi::getParamsString({{"Title", "a b"}, {"Action", "X"}});
    EXPECT_EQ(query, "Action=X&Title=a%20b");
    // "=" of the query becomes %3D, its "%" becomes %25; the key is the secret and "&".
    EXPECT_EQ(VODOpenApi::stringToSign(query), "GET&%2F&Action%3DX%26Title%3Da%2520b");
    EXPECT_EQ(VODOpenApi::signature("abc", query), VODOpenApi::hmacSha1("abc&", VODOpenApi::stringToSign(query)));
    EXPECT_NE(VODOpenApi::signature("abc", query), VODOpenApi::hmacSha1("abc", VODOpenApi::stringToSign(query)));
    // The texts end at their first zero byte.
    EXPECT_EQ(VODOpenApi::hmacSha1(std::string("abc\0zz", 6), "data"), VODOpenApi::hmacSha1("abc", "data"));
}

TEST(VODOpenApiSigning, RequestUrlCarriesCommonParamsAndEncodedSignatureByDefault) {
    std::string url = VODOpenApi::requestUrl("kid", "secret", "tok+en", "cn-shanghai",
                                             {{"Action", "RefreshUploadVideo"}, {"Format", "XML"}}, "NONCE-1");
    std::string query =
        "AccessKeyId=kid&Action=RefreshUploadVideo&Format=XML&SecurityToken=tok%2Ben&SignatureMethod=HMAC-SHA1"
        "&SignatureNonce=NONCE-1&SignatureVersion=1.0&Version=2017-03-21";
    // HMAC-SHA1 with "secret&" over "GET&%2F&" + the encoded query, worked out apart from this code
    // (base64 "dZyPQwVwRKJBgLQiMoRdxrSOHg8=", its "=" escaped).
    EXPECT_EQ(url, "https://vod.cn-shanghai.aliyuncs.com/?" + query + "&Signature=dZyPQwVwRKJBgLQiMoRdxrSOHg8%3D");
    EXPECT_EQ(url.find("Timestamp"), std::string::npos);

    // HMAC-SHA1 stays the default form: the signed request is the URL above, without headers.
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

    // A base URL replaces the regional host whatever the region, with its "/".
    config.vodBaseUrl = "http://127.0.0.1:9";
    EXPECT_EQ(config.urlForRegion("cn-beijing"), "http://127.0.0.1:9/");
}

TEST(VODOpenApiSigning, NonceIsAnUpperCaseUuidAndTimeStampIsIsoGmt) {
    std::string a = VODOpenApi::randomUUID(), b = VODOpenApi::randomUUID();
    EXPECT_TRUE(std::regex_match(a, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << a;
    EXPECT_NE(a, b);
    EXPECT_TRUE(std::regex_match(VODOpenApi::timeStamp(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
}

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
