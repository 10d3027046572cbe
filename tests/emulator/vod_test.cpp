// VOD OpenAPI and progress actions over loopback, signed by the test from the published recipe.
#include <algorithm>

#include "emulator/util.h"
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using testing::CloudTest;
using testing::Key;

std::string rpcQuery(std::map<std::string, std::string> params, const Key& key) {
    params.insert({{"Format", "JSON"}, {"Version", "2017-03-21"}, {"AccessKeyId", key.id},
                   {"SignatureMethod", "HMAC-SHA1"}, {"SignatureVersion", "1.0"},
                   {"SignatureNonce", newUuid()}, {"SecurityToken", key.token}});
    std::string canonical;
    for (const auto& [k, v] : params) canonical += (canonical.empty() ? "" : "&") + percentEncode(k) + "=" + percentEncode(v);
    auto signature = foundation::hmacSha1Base64(key.secret + "&", "GET&%2F&" + percentEncode(canonical));
    return "/?" + canonical + "&Signature=" + percentEncode(signature);
}

Value json(const httplib::Result& res) { return foundation::parseJson(res->body).value_or(Value()); }

Value decoded(const Value& reply, const char* key) {
    return *foundation::parseJson(*foundation::base64Decode(reply[key].get<std::string>()));
}

class VodTest : public CloudTest {
protected:
    void SetUp() override {
        CloudTest::SetUp();
        auto sts = cloud.issueSts();
        app = {sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    }
    httplib::Result call(const std::map<std::string, std::string>& params) { return client->Get(rpcQuery(params, app)); }
    Key app;
};

TEST_F(VodTest, CreateUploadVideoHandsOutWorkingAddressAndCredentials) {
    auto res = call({{"Action", "CreateUploadVideo"}, {"Title", "my clip"}, {"FileName", "clip.mp4"}});
    ASSERT_EQ(res->status, 200) << res->body;
    auto reply = json(res);
    auto address = decoded(reply, "UploadAddress");
    auto auth = decoded(reply, "UploadAuth");
    EXPECT_EQ(address["Endpoint"], cloud.endpoint());
    EXPECT_EQ(auth["Region"], cloud.options().region);
    EXPECT_FALSE(auth["ExpireUTCTime"].get<std::string>().empty());

    // The credentials write to the object the address names.
    Key upload{auth["AccessKeyId"], auth["AccessKeySecret"], auth["SecurityToken"]};
    std::string object = "/" + address["Bucket"].get<std::string>() + "/" + address["FileName"].get<std::string>();
    auto put = client->Put(object, testing::signedHeaders(upload, "PUT", object, "video/mp4"), "frames", "video/mp4");
    EXPECT_EQ(put->status, 200) << put->body;

    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].videoId, reply["VideoId"]);
    EXPECT_EQ(videos[0].title, "my clip");

    auto refreshed = json(call({{"Action", "RefreshUploadVideo"}, {"VideoId", reply["VideoId"]}}));
    EXPECT_EQ(decoded(refreshed, "UploadAddress"), address);
    EXPECT_NE(decoded(refreshed, "UploadAuth")["AccessKeyId"], auth["AccessKeyId"]);
}

TEST_F(VodTest, ServiceErrorsCarryTheirCodes) {
    auto missing = call({{"Action", "CreateUploadVideo"}, {"FileName", "a.mp4"}});
    EXPECT_EQ(missing->status, 400);
    EXPECT_EQ(json(missing)["Code"], "MissingParameter");
    EXPECT_EQ(json(call({{"Action", "CreateUploadVideo"}, {"Title", "t"}, {"FileName", "a.exe"}}))["Code"],
              "InvalidFileName.Extension");
    auto notFound = call({{"Action", "RefreshUploadVideo"}, {"VideoId", "nope"}});
    EXPECT_EQ(notFound->status, 404);
    EXPECT_EQ(json(notFound)["Code"], "InvalidVideo.NotFound");
    EXPECT_FALSE(json(notFound)["RequestId"].get<std::string>().empty());

    auto forged = rpcQuery({{"Action", "CreateUploadImage"}, {"ImageType", "cover"}}, {app.id, "bad", app.token});
    EXPECT_EQ(json(client->Get(forged))["Code"], "SignatureDoesNotMatch");

    cloud.expireAllTokens();
    auto expired = call({{"Action", "CreateUploadImage"}, {"ImageType", "cover"}});
    EXPECT_EQ(expired->status, 403);
    EXPECT_EQ(json(expired)["Code"], "InvalidSecurityToken.Expired");
}

TEST_F(VodTest, ProgressReportsAreStoredAndAnsweredBack) {
    const std::string key = "Kq7TzR*2VmLp84Hd";
    auto post = [&](std::map<std::string, std::string> fields) {
        std::vector<std::string> items;
        for (const auto& [k, v] : fields) items.push_back(percentEncode(k) + "=" + percentEncode(v));
        std::sort(items.begin(), items.end());
        std::string query;
        for (const auto& i : items) query += (query.empty() ? "" : "&") + i;
        auto signature = foundation::hmacSha1Base64("QZKP&", "POST&%2F&" + query);
        return client->Post("/", query + "&Signature=" + percentEncode(signature), "application/x-www-form-urlencoded");
    };
    std::map<std::string, std::string> report = {
        {"Action", "ReportUploadProgress"}, {"Version", "2017-03-14"}, {"ClientId", "DEV1"}, {"AuthTimestamp", "100"},
        {"AuthInfo", foundation::md5Hex("DEV1|" + key + "|100")}, {"FileHash", "h1"}, {"VideoId", "v1"},
        {"UploadRatio", "0.5"}, {"SignatureNonce", newUuid()}};
    EXPECT_EQ(post(report)->status, 200);
    auto stored = cloud.progressReports();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_TRUE(stored[0].signatureValid && stored[0].authInfoValid);
    EXPECT_EQ(stored[0].fields["UploadRatio"], "0.5");

    auto reply = post({{"Action", "GetUploadProgress"}, {"Version", "2017-03-14"}, {"AuthTimestamp", "100"},
                       {"AuthInfo", foundation::md5Hex(key + "|100")}, {"UploadInfoList", R"([{"FileHash":"h1"}])"}});
    EXPECT_EQ(json(reply)["UploadProgress"]["UploadProgressList"][0]["VideoId"], "v1");
}

}  // namespace
}  // namespace quorvane::emulator
