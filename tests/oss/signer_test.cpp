// Header signatures, endpoints and credential providers: pure functions, no socket.
#include <gtest/gtest.h>

#include <vector>

#include "foundation/dates.h"
#include "oss/credential_provider.h"
#include "oss/oss_endpoint.h"
#include "oss/oss_signer.h"
#include "oss/oss_signer_v4.h"

using namespace quorvane;
using namespace quorvane::oss;

namespace {
const char* kKeyId = "44CF9590006BF252F707";
const char* kSecret = "OtxrzxIsfpFjA7SwPzILwy8Bw21TLhquhboDYROV";

std::string headerOf(const foundation::Headers& headers, const std::string& name) {
    for (const auto& [k, v] : headers)
        if (k == name) return v;
    return "<absent>";
}
}  // namespace

TEST(OSSSigner, PublishedHeaderVectorDateLineAndResource) {
    foundation::Headers headers = {{"Content-MD5", "ODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM="},
                                   {"Content-Type", "text/html"},
                                   {"Date", "Thu, 17 Nov 2005 18:49:58 GMT"},
                                   {"X-OSS-Meta-Author", "foo@bar.com"},
                                   {"X-OSS-Magic", " abracadabra "}};
    auto toSign = stringToSign("PUT", headers, canonicalizedResource("oss-example", "nelson", {}));
    EXPECT_EQ(toSign,
              "PUT\nODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM=\ntext/html\nThu, 17 Nov 2005 18:49:58 GMT\n"
              "x-oss-magic:abracadabra\nx-oss-meta-author:foo@bar.com\n/oss-example/nelson");
    EXPECT_EQ(OSSUtil::calBase64Sha1WithData(toSign, kSecret), "26NBxoKdsyly4EDv6inkoDft/yA=");
    EXPECT_EQ(OSSUtil::calBase64Sha1WithData("GET\n\n\n1141889120\n/oss-example/oss-api.pdf", kSecret),
              "EwaNTn1erJGkimiJ9WmXgwnANLc=");
    EXPECT_EQ(OSSUtil::calBase64Sha1WithData("x", ""), std::nullopt);

    // The date line takes x-oss-date when present.
    headers = {{"Date", "Thu, 17 Nov 2005 18:49:58 GMT"}, {"x-oss-date", "Fri, 18 Nov 2005 00:00:00 GMT"}};
    EXPECT_EQ(stringToSign("GET", headers, "/b/k"),
              "GET\n\n\nFri, 18 Nov 2005 00:00:00 GMT\nx-oss-date:Fri, 18 Nov 2005 00:00:00 GMT\n/b/k");
    // The resource signs only sub-resources, sorted, with decoded values.
    OSSQuery query = {{"uploadId", "0004B9894A22E5B1888A1E29F823****"}, {"partNumber", "3"}, {"max-parts", "2"},
                      {"part-number-marker", "1"}, {"uploads", std::nullopt}};
    EXPECT_EQ(canonicalizedResource("b", "dir/ü x.mp4", query),
              "/b/dir/ü x.mp4?partNumber=3&uploadId=0004B9894A22E5B1888A1E29F823****&uploads");
    EXPECT_EQ(canonicalizedResource("b", "", {}), "/b/");
    EXPECT_EQ(canonicalizedResource("", "", {}), "/");
}

TEST(OSSSigner, FederationTokenIsSentAndSignedWithTheTemporaryPair) {
    int fetches = 0;
    OSSFederationCredentialProvider provider([&] {
        ++fetches;
        auto t = std::make_shared<OSSFederationToken>();
        t->tAccessKey = "STS.id";
        t->tSecretKey = "sts-secret";
        t->tToken = "token-" + std::to_string(fetches);
        return t;
    });
    auto now = *foundation::parseRfc1123("Thu, 17 Nov 2005 18:49:58 GMT");
    for (int round = 1; round <= 2; ++round) {
        foundation::Headers headers;
        ASSERT_EQ(signRequest("PUT", "b", "k", {}, headers, provider, now), std::nullopt);
        EXPECT_EQ(headerOf(headers, "x-oss-security-token"), "token-" + std::to_string(round));
        auto expected = "PUT\n\n\nThu, 17 Nov 2005 18:49:58 GMT\nx-oss-security-token:token-" +
                        std::to_string(round) + "\n/b/k";
        EXPECT_EQ(headerOf(headers, "Authorization"),
                  "OSS STS.id:" + *OSSUtil::calBase64Sha1WithData(expected, "sts-secret"));
    }
    EXPECT_EQ(fetches, 2);  // asked before every request, so a renewed token is used at once
}

TEST(OSSSigner, CustomSignerResultAndErrorReachTheRequest) {
    OSSCustomSignerCredentialProvider signer([](const std::string& content, Error*) -> std::optional<std::string> {
        return "OSS " + std::string(kKeyId) + ":" + *OSSUtil::calBase64Sha1WithData(content, kSecret);
    });
    foundation::Headers headers = {{"Date", "Thu, 17 Nov 2005 18:49:58 GMT"}};
    ASSERT_EQ(signRequest("GET", "oss-example", "oss-api.pdf", {}, headers, signer, {}), std::nullopt);
    auto toSign = stringToSign("GET", {{"Date", "Thu, 17 Nov 2005 18:49:58 GMT"}}, "/oss-example/oss-api.pdf");
    EXPECT_EQ(headerOf(headers, "Authorization"),
              "OSS 44CF9590006BF252F707:" + *OSSUtil::calBase64Sha1WithData(toSign, kSecret));

    OSSCustomSignerCredentialProvider failing([](const std::string&, Error* error) -> std::optional<std::string> {
        *error = Error("api.example.com", -1001);
        return std::nullopt;
    });
    foundation::Headers none;
    auto error = signRequest("GET", "b", "k", {}, none, failing, {});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "api.example.com");
    EXPECT_EQ(error->code, -1001);
}

TEST(OSSEndpoint, SchemesHostsAddressingAndBucketNames) {
    std::string why;
    auto plain = parseEndpoint("oss-cn-hangzhou.aliyuncs.com", false, &why);
    ASSERT_TRUE(plain);
    EXPECT_EQ(buildUrl(*plain, "bkt", "a b/c+d.jpg", {{"uploads", std::nullopt}}),
              "https://bkt.oss-cn-hangzhou.aliyuncs.com/a%20b/c%2Bd.jpg?uploads");
    auto http = parseEndpoint("HTTP://127.0.0.1:9000/", false, &why);
    ASSERT_TRUE(http);
    EXPECT_EQ(buildUrl(*http, "bkt", "k", {{"partNumber", "1"}, {"uploadId", "X Y"}}),
              "http://127.0.0.1:9000/bkt/k?partNumber=1&uploadId=X%20Y");
    auto local = parseEndpoint("http://localhost:80", false, &why);
    ASSERT_TRUE(local);
    EXPECT_TRUE(local->pathStyle);
    auto forced = parseEndpoint("https://oss.example.com", true, &why);
    ASSERT_TRUE(forced);
    EXPECT_EQ(buildUrl(*forced, "b", "k", {}), "https://oss.example.com/b/k");
    for (const char* bad : {"", "https://", "http:///path", "ftp://host", "host:port", "   "}) {
        why.clear();
        EXPECT_FALSE(parseEndpoint(bad, false, &why)) << bad;
        EXPECT_FALSE(why.empty()) << bad;
    }
    // Each mistake is named, not reported as a missing host.
    const std::pair<const char*, const char*> named[] = {
        {"http://user:pw@oss.example.com", "credentials"}, {"http://[::1", "closing ']'"},
        {"http://[::1]x", "after its IPv6"},                {"http://host:", "empty port"},
        {"http://[::1]:", "empty port"},                    {"http://[::1]:99999", "0 to 65535"},
        {"http://host:70000", "0 to 65535"},                {"http://host:8o", "0 to 65535"},
        {"http://:9000", "no host"},                        {"http://ho st", "characters"}};
    for (const auto& [endpoint, words] : named) {
        why.clear();
        EXPECT_FALSE(parseEndpoint(endpoint, false, &why)) << endpoint;
        EXPECT_NE(why.find(words), std::string::npos) << endpoint << ": " << why;
    }
    auto v6 = parseEndpoint("http://[::1]:9000", false, &why);
    ASSERT_TRUE(v6);
    EXPECT_EQ(buildUrl(*v6, "bkt", "k", {}), "http://[::1]:9000/bkt/k");

    for (const auto& name : std::vector<std::string>{"abc", "quorvane-media", "a1-b2", std::string(63, 'x')})
        EXPECT_TRUE(isValidBucketName(name)) << name;
    for (const auto& name : std::vector<std::string>{"ab", std::string(64, 'x'), "-abc", "abc-", "Abc", "a_bc", "a.bc", "a bc"})
        EXPECT_FALSE(isValidBucketName(name)) << name;
}


// V4's canonical forms, on the cases where they differ from V1's: every query parameter is signed and
// encoded, empty values are bare names, the path is encoded segment by segment.
TEST(OSSSignerV4, CanonicalFormsEncodeSortAndKeepEmptySegments) {
    OSSQuery query = {{"uploadId", "A+B/C"}, {"partNumber", "3"}, {"uploads", std::nullopt}, {"empty", ""},
                      {"max-parts", "2"}};
    EXPECT_EQ(v4CanonicalQuery(query), "empty&max-parts=2&partNumber=3&uploadId=A%2BB%2FC&uploads");
    EXPECT_EQ(v4CanonicalUri("b", "a b//ü+%/x~"), "/b/a%20b//%C3%BC%2B%25/x~");
    EXPECT_EQ(v4CanonicalUri("b", ""), "/b/");
    EXPECT_EQ(v4CanonicalUri("", ""), "/");
    EXPECT_EQ(v4AdditionalHeaderNames({"Host", " range", "host", "Content-Type", "X-OSS-Meta-A", ""}),
              (std::vector<std::string>{"host", "range"}));
    foundation::Headers headers = {{"Content-Type", " text/plain "}, {"Range", "bytes=0-1"}, {"X-Oss-B", "2"},
                                   {"x-oss-a", "1"}, {"User-Agent", "unsigned"}};
    EXPECT_EQ(v4CanonicalHeaders(headers, {"range"}), "content-type:text/plain\nrange:bytes=0-1\nx-oss-a:1\nx-oss-b:2\n");
    EXPECT_EQ(v4DateTime(foundation::SystemTime(std::chrono::seconds(1700000000))), "20231114T221320Z");
}

TEST(OSSSignerV4, AuthorizationNamesTheScopeAndOnlyTheAdditionalHeadersPresent) {
    OSSPlainTextAKSKPairCredentialProvider keys(kKeyId, kSecret);
    OSSV4Signer signer("cn-hangzhou", {"host", "range"});
    foundation::Headers headers = {{"Host", "b.oss-cn-hangzhou.aliyuncs.com"}};
    ASSERT_FALSE(signer.sign("GET", "b", "k", {}, headers, keys, foundation::SystemTime(std::chrono::seconds(1700000000))));
    auto authorization = headerOf(headers, "Authorization");
    EXPECT_EQ(authorization.rfind(std::string("OSS4-HMAC-SHA256 Credential=") + kKeyId +
                                      "/20231114/cn-hangzhou/oss/aliyun_v4_request,AdditionalHeaders=host,Signature=",
                                  0),
              0u)
        << authorization;
    EXPECT_EQ(authorization.size() - authorization.rfind('=') - 1, 64u);
    EXPECT_EQ(headerOf(headers, "x-oss-date"), "20231114T221320Z");
    EXPECT_EQ(headerOf(headers, "x-oss-content-sha256"), "UNSIGNED-PAYLOAD");
    EXPECT_EQ(headerOf(headers, "Date"), "<absent>");
}
