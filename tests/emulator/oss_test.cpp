// Object storage, fault scripts and the other services over loopback: signatures, tokens, simple
// objects, addressing; faults consumed in order per operation; the enterprise API, log-service
// tracking and host upload URLs.
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using namespace testing;

using OssTest = CloudTest;

TEST_F(OssTest, WrongSecretTamperedHeaderAndUnknownKeyAreRefusedWithTheirDocuments) {
    auto res = putAs(Key{root.id, "wrong-secret", ""}, "a.txt", "hello");
    ASSERT_EQ(outcome(res), "403 SignatureDoesNotMatch");
    EXPECT_EQ(xmlField(res->body, "OSSAccessKeyId"), root.id);
    EXPECT_EQ(xmlField(res->body, "StringToSign").substr(0, 30), "PUT\n\napplication/octet-stream\n");
    EXPECT_EQ(xmlField(res->body, "StringToSignBytes").substr(0, 9), "50 55 54 ");
    EXPECT_EQ(res->get_header_value("x-oss-request-id").size(), 24u);
    EXPECT_EQ(xmlField(res->body, "RequestId"), res->get_header_value("x-oss-request-id"));
    EXPECT_FALSE(cloud.object(bucket(), "a.txt"));

    auto headers = signedHeaders(root, "PUT", path("b.txt"), "application/octet-stream", "",
                                 {{"x-oss-meta-owner", "alice"}});
    headers.erase("x-oss-meta-owner");
    headers.emplace("x-oss-meta-owner", "mallory");
    EXPECT_EQ(outcome(client->Put(path("b.txt"), headers, "data", "application/octet-stream")),
              "403 SignatureDoesNotMatch");
    EXPECT_EQ(outcome(putAs(Key{"LTAInobody", "x", ""}, "b.txt", "data")), "403 InvalidAccessKeyId");
}

TEST_F(OssTest, StsTokenWorksUntilExpiredOrWrongAndASkewedDateIsRefused) {
    auto sts = cloud.issueSts();
    Key key{sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    EXPECT_EQ(outcome(putAs(key, "sts.bin", "payload")), "200");
    EXPECT_EQ(xmlField(putAs(Key{key.id, key.secret, "CAISforged"}, "sts.bin", "payload")->body, "Code"),
              "InvalidSecurityToken");
    cloud.expireToken(sts.SecurityToken);
    auto expired = putAs(key, "sts.bin", "payload");
    EXPECT_EQ(outcome(expired), "403 SecurityTokenExpired");
    EXPECT_EQ(xmlField(expired->body, "SecurityToken"), sts.SecurityToken);

    auto old = std::chrono::system_clock::now() - std::chrono::minutes(16);
    auto res = client->Get(path("x"), signedHeaders(root, "GET", path("x"), "", "", {}, old));
    ASSERT_EQ(outcome(res), "403 RequestTimeTooSkewed");
    EXPECT_EQ(xmlField(res->body, "MaxAllowedSkewMilliseconds"), "900000");
    EXPECT_EQ(xmlField(res->body, "RequestTime"), foundation::rfc1123Gmt(old));
    EXPECT_FALSE(xmlField(res->body, "ServerTime").empty());

    auto shortLived = cloud.issueSts(std::chrono::seconds(60));
    cloud.setClockSkew(std::chrono::seconds(61));
    // The client's Date is now 61 s behind the server: within skew, but past the token's life.
    auto lapsed = putAs(Key{shortLived.AccessKeyId, shortLived.AccessKeySecret, shortLived.SecurityToken}, "sts.bin", "payload");
    EXPECT_EQ(xmlField(lapsed->body, "Code"), "SecurityTokenExpired");
}

TEST_F(OssTest, PutGetHeadRoundTripWithDigestsAndMetadataAndABadDigestChangesNothing) {
    const std::string body = "123456789";
    auto res = put("dir/obj.txt", body, {{"x-oss-meta-origin", "test"}}, md5Base64(body));
    ASSERT_EQ(outcome(res), "200");
    EXPECT_EQ(res->get_header_value("ETag"), "\"25F9E794323B453885F5181F1B624D0B\"");
    EXPECT_EQ(res->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");

    auto got = get("dir/obj.txt");
    ASSERT_EQ(outcome(got), "200");
    EXPECT_EQ(got->body, body);
    EXPECT_EQ(got->get_header_value("x-oss-meta-origin"), "test");
    EXPECT_EQ(got->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");
    EXPECT_EQ(client->Head(path("dir/obj.txt"), signedHeaders(root, "HEAD", path("dir/obj.txt")))
                  ->get_header_value("Content-Length"), "9");
    auto missing = client->Head(path("none"), signedHeaders(root, "HEAD", path("none")));
    EXPECT_EQ(missing->status, 404);
    EXPECT_TRUE(missing->body.empty());
    EXPECT_EQ(outcome(get("none")), "404 NoSuchKey");

    // A body that does not match its Content-MD5 leaves the stored object intact.
    EXPECT_EQ(outcome(put("dir/obj.txt", "replacement", {}, md5Base64("something else"))), "400 InvalidDigest");
    EXPECT_EQ(cloud.objectBytes(bucket(), "dir/obj.txt"), body);
}

TEST_F(OssTest, VirtualHostedAddressingUsesTheHostHeader) {
    auto headers = signedHeaders(root, "PUT", "/" + bucket() + "/vh.txt", "text/plain");
    headers.emplace("Host", bucket() + ".localhost:" + std::to_string(cloud.port()));
    EXPECT_EQ(outcome(client->Put("/vh.txt", headers, "virtual", "text/plain")), "200");
    EXPECT_EQ(cloud.objectBytes(bucket(), "vh.txt"), "virtual");
    EXPECT_EQ(xmlField(client->Get("/no-such-bucket/k", signedHeaders(root, "GET", "/no-such-bucket/k"))->body, "Code"),
              "NoSuchBucket");
}

struct SmallLimitTest : CloudTest {
    SmallLimitTest() : CloudTest([] { EmulatorOptions o; o.maxObjectSize = 1000; return o; }()) {}
};

TEST_F(SmallLimitTest, OversizedBodyGetsEntityTooLargeAndTheConnectionStaysUsable) {
    EXPECT_EQ(outcome(put("big.bin", std::string(1001, 'x'))), "400 EntityTooLarge");
    EXPECT_FALSE(cloud.object(bucket(), "big.bin"));
    EXPECT_EQ(put("small.bin", std::string(1000, 'x'))->status, 200);
}

TEST_F(OssTest, FaultsFireInOrderForTheirOperationOnlyAResetClosesWithoutAnswerAndACorruptCrcOnlyLies) {
    cloud.addFaults({Fault::error("PutObject", 403, "SecurityTokenExpired"), Fault::error("PutObject", 500, "InternalError")});
    EXPECT_EQ(get("none")->status, 404);  // another operation is untouched
    EXPECT_EQ(outcome(put("f.txt", "x")), "403 SecurityTokenExpired");
    EXPECT_EQ(xmlField(put("f.txt", "x")->body, "Code"), "InternalError");
    EXPECT_EQ(put("f.txt", "x")->status, 200);
    EXPECT_EQ(cloud.firedCount("PutObject"), 2u);
    EXPECT_EQ(cloud.pendingFaults(), 0u);
    EXPECT_EQ(cloud.requests("PutObject").back().status, 200);
    EXPECT_EQ(cloud.requests("PutObject").front().errorCode, "SecurityTokenExpired");

    cloud.addFault(Fault::reset("PutObject", 1000));
    EXPECT_FALSE(put("cut.bin", std::string(200000, 'z')));  // the connection died: no status at all
    EXPECT_FALSE(cloud.object(bucket(), "cut.bin"));
    auto recorded = cloud.requests("PutObject");
    ASSERT_EQ(recorded.size(), 4u);
    EXPECT_EQ(recorded[3].status, 0);
    EXPECT_GE(recorded[3].bodySize, 1000u);
    EXPECT_EQ(put("cut.bin", "ok")->status, 200);  // a new connection is served normally

    cloud.addFault(Fault::corruptCrc("PutObject"));
    auto res = put("c.txt", "123456789");
    ASSERT_EQ(res->status, 200);
    EXPECT_NE(res->get_header_value("x-oss-hash-crc64ecma"), "11051210869376104954");
    EXPECT_EQ(cloud.object(bucket(), "c.txt")->crc64, 11051210869376104954ULL);  // only the answer lies

    cloud.addFault(Fault::error("*", 503, "ServiceUnavailable"));
    EXPECT_EQ(get("c.txt")->status, 503);
    EXPECT_EQ(cloud.firedFaults().back().operation, "GetObject");
}

TEST_F(OssTest, EnterpriseConfigNeedsTheAccessTokenAndTicketsCreateVideos) {
    auto token = cloud.options().enterpriseAccessToken;
    auto config = json(client->Get("/enterprise-api/oss/config?access_token=" + token));
    EXPECT_EQ(config["accessKeyId"], cloud.options().accessKeyId);
    EXPECT_EQ(config["endpoint"], cloud.endpoint());
    EXPECT_EQ(config["bucket"], bucket());
    auto refused = json(client->Get("/enterprise-api/oss/config?access_token=wrong"));
    EXPECT_EQ(refused["code"], 401);
    EXPECT_TRUE(refused.contains("msg"));
    cloud.setOssConfigAnswer(Value{{"code", 401}});
    EXPECT_EQ(json(client->Get("/enterprise-api/oss/config?access_token=" + token)), (Value{{"code", 401}}));

    auto url = "/enterprise-api/v2/ent-7/ticket?access_token=" + token;
    auto ticket = json(client->Post(url, R"({"file_name":"rec.mp4"})", "application/json"));
    ASSERT_TRUE(ticket.contains("uploadAuth"));
    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].videoId, ticket["videoId"]);
    EXPECT_EQ(cloud.enterpriseCalls().back().enterpriseId, "ent-7");
    for (const char* body : {"{not json", "{}", R"({"file_name":""})"}) {
        auto bad = json(client->Post(url, body, "application/json"));
        EXPECT_EQ(bad["code"], 400) << body;
        EXPECT_TRUE(bad.contains("message"));
    }
}

TEST_F(OssTest, TrackRecordsEveryEventParameterAndHostUploadStoresFileAndFields) {
    auto res = client->Get("/logstores/upload/track?APIVersion=0.6.0&t=123&e=20003&app_n=%E4%B8%AD");
    ASSERT_EQ(res->status, 200);
    EXPECT_TRUE(res->body.empty());
    EXPECT_FALSE(res->get_header_value("x-log-requestid").empty());
    auto events = cloud.logEvents();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].logstore, "upload");
    EXPECT_EQ(events[0].params["e"], "20003");
    EXPECT_EQ(events[0].params["app_n"], "\xE4\xB8\xAD");
    EXPECT_EQ(json(client->Get("/logstores/upload/track?t=1"))["errorCode"], "InvalidParameter");

    httplib::MultipartFormDataItems items = {{"file", "JPEGDATA", "photo.jpg", "image/jpg"}, {"userId", "42", "", ""}};
    auto uploaded = client->Post("/host/upload", httplib::Headers{{"lang", "zh_cn"}}, items);
    ASSERT_EQ(uploaded->status, 200) << uploaded->body;
    EXPECT_EQ(json(uploaded)["code"], 0);
    auto uploads = cloud.hostUploads();
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].fileBytes, "JPEGDATA");
    EXPECT_EQ(uploads[0].fileContentType, "image/jpg");
    EXPECT_EQ(uploads[0].fields["userId"], "42");
}

}  // namespace
}  // namespace quorvane::emulator
