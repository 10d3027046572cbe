// Signatures and the Complete body parser against published values; no sockets.
#include <gtest/gtest.h>

#include "emulator/cloud_emulator.h"
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

TEST(OssSignatureCheck, PublishedVectorVerifies) {
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
}

TEST(OssSignatureCheck, RefusesSkewTamperingAndMalformedHeaders) {
    auto request = publishedRequest();
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

TEST(OssSignatureCheck, SignsOnlySubResourcesSorted) {
    OssSignedRequest r{"GET", {{"Date", "x"}}, "b", "k", {{"uploadId", "U1"}, {"max-parts", "5"}, {"acl", ""}}};
    EXPECT_EQ(ossStringToSign(r), "GET\n\n\nx\n/b/k?acl&uploadId=U1");
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
