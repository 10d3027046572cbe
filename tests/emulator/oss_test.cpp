// Object storage over loopback: signatures, tokens, simple objects, addressing.
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using testing::CloudTest;
using testing::Key;
using testing::md5Base64;
using testing::signedHeaders;
using testing::xmlField;

class OssTest : public CloudTest {};

TEST_F(OssTest, WrongSecretGetsSignatureDoesNotMatchDocument) {
    auto res = put("a.txt", "hello", Key{root.id, "wrong-secret", ""});
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 403);
    EXPECT_EQ(xmlField(res->body, "Code"), "SignatureDoesNotMatch");
    EXPECT_EQ(xmlField(res->body, "OSSAccessKeyId"), root.id);
    EXPECT_EQ(xmlField(res->body, "StringToSign").substr(0, 30), "PUT\n\napplication/octet-stream\n");
    EXPECT_EQ(xmlField(res->body, "StringToSignBytes").substr(0, 9), "50 55 54 ");
    EXPECT_EQ(res->get_header_value("x-oss-request-id").size(), 24u);
    EXPECT_EQ(xmlField(res->body, "RequestId"), res->get_header_value("x-oss-request-id"));
    EXPECT_FALSE(cloud.object(bucket(), "a.txt"));
}

TEST_F(OssTest, TamperedHeaderAndUnknownKeyAreRefused) {
    auto headers = signedHeaders(root, "PUT", path("b.txt"), "application/octet-stream", "",
                                 {{"x-oss-meta-owner", "alice"}});
    headers.erase("x-oss-meta-owner");
    headers.emplace("x-oss-meta-owner", "mallory");
    auto res = client->Put(path("b.txt"), headers, "data", "application/octet-stream");
    ASSERT_TRUE(res);
    EXPECT_EQ(xmlField(res->body, "Code"), "SignatureDoesNotMatch");

    auto unknown = put("b.txt", "data", Key{"LTAInobody", "x", ""});
    ASSERT_TRUE(unknown);
    EXPECT_EQ(xmlField(unknown->body, "Code"), "InvalidAccessKeyId");
}

TEST_F(OssTest, StsTokenWorksUntilExpiredOrWrong) {
    auto sts = cloud.issueSts();
    Key key{sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    auto ok = put("sts.bin", "payload", key);
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->status, 200);

    auto wrong = put("sts.bin", "payload", Key{key.id, key.secret, "CAISforged"});
    EXPECT_EQ(xmlField(wrong->body, "Code"), "InvalidSecurityToken");

    cloud.expireToken(sts.SecurityToken);
    auto expired = put("sts.bin", "payload", key);
    ASSERT_TRUE(expired);
    EXPECT_EQ(expired->status, 403);
    EXPECT_EQ(xmlField(expired->body, "Code"), "SecurityTokenExpired");
    EXPECT_EQ(xmlField(expired->body, "SecurityToken"), sts.SecurityToken);

    auto shortLived = cloud.issueSts(std::chrono::seconds(60));
    cloud.setClockSkew(std::chrono::seconds(61));
    Key later{shortLived.AccessKeyId, shortLived.AccessKeySecret, shortLived.SecurityToken};
    auto lapsed = put("sts.bin", "payload", later, {}, "");
    // The client's Date is now 61 s behind the server: within skew, but past the token's life.
    EXPECT_EQ(xmlField(lapsed->body, "Code"), "SecurityTokenExpired");
}

TEST_F(OssTest, SkewedDateGetsRequestTimeTooSkewedWithItsFields) {
    auto old = std::chrono::system_clock::now() - std::chrono::minutes(16);
    auto res = client->Get(path("x"), signedHeaders(root, "GET", path("x"), "", "", {}, old));
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 403);
    EXPECT_EQ(xmlField(res->body, "Code"), "RequestTimeTooSkewed");
    EXPECT_EQ(xmlField(res->body, "MaxAllowedSkewMilliseconds"), "900000");
    EXPECT_EQ(xmlField(res->body, "RequestTime"), foundation::rfc1123Gmt(old));
    EXPECT_FALSE(xmlField(res->body, "ServerTime").empty());
}

TEST_F(OssTest, PutGetHeadRoundTripWithDigestsAndMetadataAndABadDigestChangesNothing) {
    const std::string body = "123456789";
    auto res = put("dir/obj.txt", body, root, {{"x-oss-meta-origin", "test"}}, md5Base64(body));
    ASSERT_TRUE(res);
    ASSERT_EQ(res->status, 200) << res->body;
    EXPECT_EQ(res->get_header_value("ETag"), "\"25F9E794323B453885F5181F1B624D0B\"");
    EXPECT_EQ(res->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");

    auto got = get(path("dir/obj.txt"), path("dir/obj.txt"), root);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->body, body);
    EXPECT_EQ(got->get_header_value("x-oss-meta-origin"), "test");
    EXPECT_EQ(got->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");

    auto head = client->Head(path("dir/obj.txt"), signedHeaders(root, "HEAD", path("dir/obj.txt")));
    ASSERT_TRUE(head);
    EXPECT_EQ(head->get_header_value("Content-Length"), "9");
    auto missing = client->Head(path("none"), signedHeaders(root, "HEAD", path("none")));
    EXPECT_EQ(missing->status, 404);
    EXPECT_TRUE(missing->body.empty());
    auto missingGet = get(path("none"), path("none"), root);
    EXPECT_EQ(xmlField(missingGet->body, "Code"), "NoSuchKey");

    // A body that does not match its Content-MD5 leaves the stored object intact.
    auto bad = put("dir/obj.txt", "replacement", root, {}, md5Base64("something else"));
    ASSERT_TRUE(bad);
    EXPECT_EQ(bad->status, 400);
    EXPECT_EQ(xmlField(bad->body, "Code"), "InvalidDigest");
    EXPECT_EQ(cloud.objectBytes(bucket(), "dir/obj.txt"), body);
}

TEST_F(OssTest, VirtualHostedAddressingUsesTheHostHeader) {
    auto headers = signedHeaders(root, "PUT", "/" + bucket() + "/vh.txt", "text/plain");
    headers.emplace("Host", bucket() + ".localhost:" + std::to_string(cloud.port()));
    auto res = client->Put("/vh.txt", headers, "virtual", "text/plain");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200) << res->body;
    EXPECT_EQ(cloud.objectBytes(bucket(), "vh.txt"), "virtual");

    auto noBucket = put("x", "y", root);  // sanity: path style still works beside it
    EXPECT_EQ(noBucket->status, 200);
    auto other = client->Get("/no-such-bucket/k", signedHeaders(root, "GET", "/no-such-bucket/k"));
    EXPECT_EQ(xmlField(other->body, "Code"), "NoSuchBucket");
}

EmulatorOptions smallLimit() {
    EmulatorOptions o;
    o.maxObjectSize = 1000;
    return o;
}

class SmallLimitTest : public CloudTest {
protected:
    SmallLimitTest() : CloudTest(smallLimit()) {}
};

TEST_F(SmallLimitTest, OversizedBodyGetsEntityTooLargeAndTheConnectionStaysUsable) {
    auto res = put("big.bin", std::string(1001, 'x'), root);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 400);
    EXPECT_EQ(xmlField(res->body, "Code"), "EntityTooLarge");
    EXPECT_FALSE(cloud.object(bucket(), "big.bin"));
    EXPECT_EQ(put("small.bin", std::string(1000, 'x'), root)->status, 200);
}

}  // namespace
}  // namespace quorvane::emulator
