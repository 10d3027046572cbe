// Signatures and the Complete body parser against published values; no sockets.
#include "emulator/oss_signature_check.h"
#include "emulator/oss_xml.h"
#include "emulator/vod_signature_check.h"
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

const std::string kKeyId = "44CF9590006BF252F707";
const std::string kSecret = "OtxrzxIsfpFjA7SwPzILwy8Bw21TLhquhboDYROV";

OssSignedRequest publishedRequest() {
    return {"PUT",
            {{"Content-MD5", "ODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM="},
             {"Content-Type", "text/html"},
             {"Date", "Thu, 17 Nov 2005 18:49:58 GMT"},
             {"X-OSS-Meta-Author", "foo@bar.com"},
             {"X-OSS-Magic", "abracadabra"},
             {"Authorization", "OSS " + kKeyId + ":26NBxoKdsyly4EDv6inkoDft/yA="}},
            "oss-example",
            "nelson",
            {}};
}

const OssSignaturePolicy kPolicy{"cn-hangzhou", true};

KeyCheck publishedKey(const std::string& id, const std::optional<std::string>&) {
    return id == kKeyId ? KeyCheck{true, false, kSecret, TokenState::Valid} : KeyCheck{};
}

TEST(OssSignatureCheck, PublishedVectorVerifiesAndSkewTamperingAndMalformedHeadersAreRefused) {
    auto request = publishedRequest();
    EXPECT_EQ(ossStringToSign(request),
              "PUT\nODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM=\ntext/html\nThu, 17 Nov 2005 18:49:58 GMT\n"
              "x-oss-magic:abracadabra\nx-oss-meta-author:foo@bar.com\n/oss-example/nelson");
    auto then = *foundation::parseRfc1123("Thu, 17 Nov 2005 18:55:00 GMT");
    EXPECT_FALSE(checkOssSignature(request, publishedKey, kPolicy, then));
    // The test's own signer agrees with the published value.
    EXPECT_EQ(testing::v1Signature(kSecret, "PUT", "ODBGOERFMDMzQTczRUY3NUE3NzA5QzdFNUYzMDQxNEM=", "text/html",
                                   "Thu, 17 Nov 2005 18:49:58 GMT",
                                   {{"x-oss-magic", "abracadabra"}, {"x-oss-meta-author", "foo@bar.com"}},
                                   "/oss-example/nelson"),
              "26NBxoKdsyly4EDv6inkoDft/yA=");

    // Only sub-resources are signed, sorted.
    OssSignedRequest r{"GET", {{"Date", "x"}}, "b", "k", {{"uploadId", "U1"}, {"max-parts", "5"}, {"acl", ""}}};
    EXPECT_EQ(ossStringToSign(r), "GET\n\n\nx\n/b/k?acl&uploadId=U1");

    // Skew, tampering and malformed headers are refused.
    auto late = *foundation::parseRfc1123("Thu, 17 Nov 2005 19:05:00 GMT");
    auto skew = checkOssSignature(request, publishedKey, kPolicy, late);
    ASSERT_TRUE(skew);
    EXPECT_EQ(skew->code, "RequestTimeTooSkewed");

    auto onTime = *foundation::parseRfc1123("Thu, 17 Nov 2005 18:50:00 GMT");
    request.headers[4].second = "abracadabrA";
    auto tampered = checkOssSignature(request, publishedKey, kPolicy, onTime);
    ASSERT_TRUE(tampered);
    EXPECT_EQ(tampered->code, "SignatureDoesNotMatch");

    request.headers[5].second = "OSS nocolon";
    auto malformed = checkOssSignature(request, publishedKey, kPolicy, onTime);
    ASSERT_TRUE(malformed);
    EXPECT_EQ(malformed->status, 400);
    EXPECT_EQ(malformed->code, "InvalidArgument");
}

TEST(RpcSignatureCheck, PublishedVectorsVerify) {
    Pairs p = {{"AccessKeyId", "testid"}, {"Action", "DescribeRegions"}, {"Format", "XML"},
               {"SignatureMethod", "HMAC-SHA1"}, {"SignatureNonce", "3ee8c1b8-83d3-44af-a94f-4e0ad82fd6cf"},
               {"SignatureVersion", "1.0"}, {"Timestamp", "2016-02-23T12:46:24Z"}, {"Version", "2014-05-26"}};
    auto withSignature = [](Pairs p, const std::string& s) { return p.emplace_back("Signature", s), p; };
    EXPECT_TRUE(rpcSignatureMatches("GET", withSignature(p, "OLeaidS1JvxuMvnyHOwuJ+uX5qY="), "testsecret"));
    EXPECT_TRUE(rpcSignatureMatches("POST", withSignature(p, "MxbnVAM4w6sft9xjVpe/GCKueuk="), "testsecret"));
    EXPECT_FALSE(rpcSignatureMatches("GET", withSignature(p, "OLeaidS1JvxuMvnyHOwuJ+uX5qY="), "other"));

    Pairs q = {{"AccessKeyId", "testAccessKeyId"}, {"Action", "GetVideoPlayAuth"}, {"Format", "JSON"},
               {"SignatureMethod", "HMAC-SHA1"}, {"SignatureNonce", "8f8a035d-6496-4268-afd4-67c22837e38d"},
               {"SignatureVersion", "1.0"}, {"Timestamp", "2017-10-10T12:02:54Z"}, {"Version", "2017-03-21"},
               {"VideoId", "5aed81b74ba84920be578cdfe004af4b"}, {"Signature", "Ibgh7y8Vp47LBuAsf5Xhi1SvDss="}};
    EXPECT_TRUE(rpcSignatureMatches("GET", q, "testAccessKeySecret"));
}

// The worked example of the V3 signature documentation (RunInstances, POST, empty body): the
// published canonical request, its hash and the signature. The headers arrive in mixed case and
// order, the query unsorted, as a server receives them.
TEST(Acs3SignatureCheck, PublishedExampleVerifiesAndAuthorizationsParse) {
    Pairs query = {{"RegionId", "cn-shanghai"}, {"ImageId", "win2019_1809_x64_dtc_zh-cn_40G_alibase_20230811.vhd"}};
    Pairs headers = {{"x-acs-version", "2014-05-26"},
                     {"X-Acs-Action", "RunInstances"},
                     {"Host", "ecs.cn-shanghai.aliyuncs.com"},
                     {"x-acs-signature-nonce", "3156853299f313e23d1673dc12e1703d"},
                     {"x-acs-date", "2023-10-26T10:22:32Z"},
                     {"x-acs-content-sha256", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"}};
    auto canonical = acs3CanonicalRequest("POST", "/", query, headers, foundation::sha256Hex(""));
    EXPECT_EQ(canonical,
              "POST\n/\nImageId=win2019_1809_x64_dtc_zh-cn_40G_alibase_20230811.vhd&RegionId=cn-shanghai\n"
              "host:ecs.cn-shanghai.aliyuncs.com\nx-acs-action:RunInstances\n"
              "x-acs-content-sha256:e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855\n"
              "x-acs-date:2023-10-26T10:22:32Z\nx-acs-signature-nonce:3156853299f313e23d1673dc12e1703d\n"
              "x-acs-version:2014-05-26\n\n"
              "host;x-acs-action;x-acs-content-sha256;x-acs-date;x-acs-signature-nonce;x-acs-version\n"
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(foundation::sha256Hex(canonical), "7ea06492da5221eba5297e897ce16e55f964061054b7695beedaac1145b1e259");
    EXPECT_EQ(acs3Signature("YourAccessKeySecret", canonical),
              "06563a9e1b43f5dfe96b81484da74bceab24a1d853912eee15083a6f0f3283c0");
    EXPECT_NE(acs3Signature("YourAccessKeySecret&", canonical),  // the RPC form's key suffix does not apply
              "06563a9e1b43f5dfe96b81484da74bceab24a1d853912eee15083a6f0f3283c0");

    auto parsed = parseAcs3Authorization(
        "ACS3-HMAC-SHA256 Credential=YourAccessKeyId, SignedHeaders=Host;x-acs-action,Signature=0656abc");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->keyId, "YourAccessKeyId");
    EXPECT_EQ(parsed->signedHeaders, (std::vector<std::string>{"host", "x-acs-action"}));
    EXPECT_EQ(parsed->signature, "0656abc");

    for (const char* bad : {"ACS3-HMAC-SHA256 Credential=k,SignedHeaders=host",           // no signature
                            "ACS3-HMAC-SHA256 Credential=,SignedHeaders=host,Signature=1",  // empty key id
                            "ACS3-HMAC-SHA256 Credential=k,SignedHeaders=host;;x,Signature=1",
                            "ACS3-HMAC-SHA256 Credential=k,SignedHeaders,Signature=1",
                            "ACS3-HMAC-SHA256X Credential=k,SignedHeaders=host,Signature=1",
                            "OSS4-HMAC-SHA256 Credential=k,SignedHeaders=host,Signature=1"})
        EXPECT_FALSE(parseAcs3Authorization(bad)) << bad;
    EXPECT_TRUE(isAcs3Authorization("ACS3-HMAC-SHA256 anything"));
    EXPECT_FALSE(isAcs3Authorization("ACS3-HMAC-SHA256"));
}

TEST(CompleteBody, ParsesPartsAndRejectsMalformedDocuments) {
    auto parts = parseCompleteBody(
        "<CompleteMultipartUpload><Part><PartNumber>1</PartNumber><ETag>\"AB\"</ETag></Part>"
        "<Part><PartNumber>3</PartNumber><ETag>CD</ETag></Part></CompleteMultipartUpload>");
    ASSERT_TRUE(parts);
    ASSERT_EQ(parts->size(), 2u);
    EXPECT_EQ((*parts)[0].etag, "AB");
    EXPECT_EQ((*parts)[1].number, 3);
    for (const char* bad : {"", "<CompleteMultipartUpload>", "<Other/>", "<CompleteMultipartUpload/>",
                            "<CompleteMultipartUpload><Part><PartNumber>x</PartNumber><ETag>A</ETag></Part>"
                            "</CompleteMultipartUpload>",
                            "<CompleteMultipartUpload><Part><PartNumber>1</PartNumber></Part></CompleteMultipartUpload>"})
        EXPECT_FALSE(parseCompleteBody(bad)) << bad;
}

}  // namespace
}  // namespace quorvane::emulator
