// Enterprise API, log-service tracking and host upload URLs over loopback.
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using testing::CloudTest;

Value json(const httplib::Result& res) { return foundation::parseJson(res->body).value_or(Value()); }

class ServicesTest : public CloudTest {};

TEST_F(ServicesTest, OssConfigNeedsTheAccessToken) {
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
}

TEST_F(ServicesTest, TicketCreatesAVideoAndRefusesBadBodies) {
    auto url = "/enterprise-api/v2/ent-7/ticket?access_token=" + cloud.options().enterpriseAccessToken;
    auto ticket = json(client->Post(url, R"({"file_name":"rec.mp4"})", "application/json"));
    ASSERT_TRUE(ticket.contains("uploadAuth"));
    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].videoId, ticket["videoId"]);
    EXPECT_EQ(cloud.enterpriseCalls().back().enterpriseId, "ent-7");

    for (const char* body : {"{not json", "{}", R"({"file_name":""})"}) {
        auto refused = json(client->Post(url, body, "application/json"));
        EXPECT_EQ(refused["code"], 400) << body;
        EXPECT_TRUE(refused.contains("message"));
    }
}

TEST_F(ServicesTest, TrackRecordsEveryEventParameter) {
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
}

TEST_F(ServicesTest, HostUploadStoresFileAndFields) {
    httplib::MultipartFormDataItems items = {{"file", "JPEGDATA", "photo.jpg", "image/jpg"}, {"userId", "42", "", ""}};
    auto res = client->Post("/host/upload", httplib::Headers{{"lang", "zh_cn"}}, items);
    ASSERT_EQ(res->status, 200) << res->body;
    EXPECT_EQ(json(res)["code"], 0);
    auto uploads = cloud.hostUploads();
    ASSERT_EQ(uploads.size(), 1u);
    EXPECT_EQ(uploads[0].fileBytes, "JPEGDATA");
    EXPECT_EQ(uploads[0].fileContentType, "image/jpg");
    EXPECT_EQ(uploads[0].fields["userId"], "42");
}

}  // namespace
}  // namespace quorvane::emulator
