// VOD OpenAPI and progress actions over loopback, signed by the test from the published recipes: RPC
// HMAC-SHA1 and ACS3-HMAC-SHA256 requests the service accepts, and the codes it refuses the rest with.
#include <set>

#include "emulator/util.h"
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using namespace std::chrono_literals;
using namespace testing;

Value decoded(const Value& reply, const char* key) {
    return *foundation::parseJson(*foundation::base64Decode(reply[key].get<std::string>()));
}

// A request before signing: every header here (lower-case names) is signed unless named in
// `unsignedHeaders`.
struct Acs3Request {
    std::map<std::string, std::string> query;
    std::map<std::string, std::string> headers;
    std::set<std::string> unsignedHeaders;
};

std::string canonicalQuery(const std::map<std::string, std::string>& query) {
    std::string out;
    for (const auto& [k, v] : query) out += (out.empty() ? "" : "&") + percentEncode(k) + "=" + percentEncode(v);
    return out;
}

std::string rpcQuery(std::map<std::string, std::string> params, const Key& key) {
    params.insert({{"Format", "JSON"}, {"Version", "2017-03-21"}, {"AccessKeyId", key.id},
                   {"SignatureMethod", "HMAC-SHA1"}, {"SignatureVersion", "1.0"},
                   {"SignatureNonce", newUuid()}, {"SecurityToken", key.token}});
    auto canonical = canonicalQuery(params);
    auto signature = foundation::hmacSha1Base64(key.secret + "&", "GET&%2F&" + percentEncode(canonical));
    return "/?" + canonical + "&Signature=" + percentEncode(signature);
}

httplib::Headers sign(const Acs3Request& r, const Key& key, const std::string& secret) {
    std::string lines, names;
    httplib::Headers out;
    for (const auto& [name, value] : r.headers) {
        out.emplace(name == "host" ? "Host" : name, value);
        if (r.unsignedHeaders.count(name)) continue;
        lines += name + ":" + value + "\n";
        names += (names.empty() ? "" : ";") + name;
    }
    auto payload = foundation::sha256Hex("");
    auto canonical = "GET\n/\n" + canonicalQuery(r.query) + "\n" + lines + "\n" + names + "\n" + payload;
    auto toSign = "ACS3-HMAC-SHA256\n" + foundation::sha256Hex(canonical);
    auto signature = foundation::hexLower(foundation::hmacSha256Raw(secret, toSign));
    out.emplace("Authorization",
                "ACS3-HMAC-SHA256 Credential=" + key.id + ",SignedHeaders=" + names + ",Signature=" + signature);
    return out;
}

class VodTest : public CloudTest {
protected:
    void SetUp() override {
        CloudTest::SetUp();
        auto sts = cloud.issueSts();
        app = {sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    }
    httplib::Result call(const std::map<std::string, std::string>& params) { return client->Get(rpcQuery(params, app)); }

    Acs3Request request(const std::string& action, std::map<std::string, std::string> query,
                        foundation::SystemTime when = std::chrono::system_clock::now()) {
        return {std::move(query),
                {{"host", "127.0.0.1:" + std::to_string(cloud.port())}, {"x-acs-action", action},
                 {"x-acs-content-sha256", foundation::sha256Hex("")}, {"x-acs-date", foundation::iso8601Utc(when)},
                 {"x-acs-signature-nonce", newUuid()}, {"x-acs-security-token", app.token}, {"x-acs-version", "2017-03-21"}},
                {}};
    }
    httplib::Result send(const Acs3Request& r, const httplib::Headers& headers) {
        return client->Get("/?" + canonicalQuery(r.query), headers);
    }
    httplib::Result send(const Acs3Request& r) { return send(r, sign(r, app, app.secret)); }
    // "status Code" of a JSON answer, or "status" alone when it names no code.
    static std::string outcomeOf(const httplib::Result& res) {
        if (!res) return "no answer";
        auto code = foundation::parseJson(res->body).value_or(Value::object()).value("Code", "");
        return std::to_string(res->status) + (code.empty() ? "" : " " + code);
    }

    Key app;
};

TEST_F(VodTest, CreateUploadVideoHandsOutWorkingAddressAndCredentials) {
    auto res = call({{"Action", "CreateUploadVideo"}, {"Title", "my clip"}, {"FileName", "clip.mp4"}});
    ASSERT_EQ(outcomeOf(res), "200");
    auto reply = json(res);
    auto address = decoded(reply, "UploadAddress");
    auto auth = decoded(reply, "UploadAuth");
    EXPECT_EQ(address["Endpoint"], cloud.endpoint());
    EXPECT_EQ(auth["Region"], cloud.options().region);
    EXPECT_FALSE(auth["ExpireUTCTime"].get<std::string>().empty());

    // The credentials write to the object the address names.
    Key upload{auth["AccessKeyId"], auth["AccessKeySecret"], auth["SecurityToken"]};
    std::string object = "/" + address["Bucket"].get<std::string>() + "/" + address["FileName"].get<std::string>();
    auto put = client->Put(object, signedHeaders(upload, "PUT", object, "video/mp4"), "frames", "video/mp4");
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
    EXPECT_EQ(outcomeOf(call({{"Action", "CreateUploadVideo"}, {"FileName", "a.mp4"}})), "400 MissingParameter");
    EXPECT_EQ(outcomeOf(call({{"Action", "CreateUploadVideo"}, {"Title", "t"}, {"FileName", "a.exe"}})),
              "400 InvalidFileName.Extension");
    auto notFound = call({{"Action", "RefreshUploadVideo"}, {"VideoId", "nope"}});
    EXPECT_EQ(outcomeOf(notFound), "404 InvalidVideo.NotFound");
    EXPECT_FALSE(json(notFound)["RequestId"].get<std::string>().empty());

    auto forged = rpcQuery({{"Action", "CreateUploadImage"}, {"ImageType", "cover"}}, {app.id, "bad", app.token});
    EXPECT_EQ(outcomeOf(client->Get(forged)), "400 SignatureDoesNotMatch");

    cloud.expireAllTokens();
    EXPECT_EQ(outcomeOf(call({{"Action", "CreateUploadImage"}, {"ImageType", "cover"}})), "403 InvalidSecurityToken.Expired");
}

TEST_F(VodTest, ProgressReportsAreStoredAndAnsweredBack) {
    const std::string key = "Kq7TzR*2VmLp84Hd";
    auto post = [&](const std::map<std::string, std::string>& fields) {
        auto query = canonicalQuery(fields);  // these names sort the same as their encoded pairs
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

TEST_F(VodTest, Acs3RefusesWhatTheServiceRefusesWithItsCodesAndServesTheRest) {
    auto now = std::chrono::system_clock::now();
    auto at = [&](auto offset) {
        return [=](Acs3Request& r) { r.headers["x-acs-date"] = foundation::iso8601Utc(now + offset); };
    };
    auto drop = [](const char* name) { return [=](Acs3Request& r) { r.headers.erase(name); }; };
    auto authorization = [](auto change) {
        return [=](httplib::Headers& h) {
            auto value = h.find("Authorization")->second;
            h.erase("Authorization");
            h.emplace("Authorization", change(value));
        };
    };
    using Before = std::function<void(Acs3Request&)>;
    using After = std::function<void(httplib::Headers&)>;
    struct Case {
        const char* what;
        Before before;  // changes the request before it is signed
        After after;    // changes the headers after
        std::string secret;
        const char* outcome;
    };
    const std::string right = app.secret;
    std::vector<Case> cases = {
        {"wrong secret", {}, {}, right + "x", "400 SignatureDoesNotMatch"},
        {"signature changed", {}, authorization([](std::string a) { return a.back() = a.back() == '0' ? '1' : '0', a; }),
         right, "400 SignatureDoesNotMatch"},
        {"body hash not the body's", [](Acs3Request& r) { r.headers["x-acs-content-sha256"] = foundation::sha256Hex("x"); },
         {}, right, "400 SignatureDoesNotMatch"},
        {"unknown key", {},
         authorization([&](std::string a) { return a.replace(a.find(app.id), app.id.size(), "LTAInobody"); }), right,
         "404 InvalidAccessKeyId.NotFound"},
        {"dated 16 minutes ago", at(-16min), {}, right, "400 InvalidTimeStamp.Expired"},
        {"dated 16 minutes ahead", at(16min), {}, right, "400 InvalidTimeStamp.Expired"},
        {"date not ISO 8601", [&](Acs3Request& r) { r.headers["x-acs-date"] = foundation::rfc1123Gmt(now); }, {}, right,
         "400 InvalidTimeStamp.Format"},
        {"no nonce", drop("x-acs-signature-nonce"), {}, right, "400 MissingParameter"},
        {"no version", drop("x-acs-version"), {}, right, "400 MissingParameter"},
        {"no security token for an STS key", drop("x-acs-security-token"), {}, right, "400 MissingSecurityToken"},
        {"security token not signed", [](Acs3Request& r) { r.unsignedHeaders.insert("x-acs-security-token"); }, {},
         right, "400 IncompleteSignature"},
        {"authorization without a signature", {},
         authorization([](std::string a) { return a.substr(0, a.find(",Signature=")); }), right, "400 InvalidParameter"},
    };
    for (const auto& c : cases) {
        auto r = request("CreateUploadVideo", {{"Title", "t"}, {"FileName", "f.mp4"}});
        if (c.before) c.before(r);
        auto headers = sign(r, app, c.secret);
        if (c.after) c.after(headers);
        auto res = send(r, headers);
        EXPECT_EQ(outcomeOf(res), c.outcome) << c.what << ": " << (res ? res->body : "");
    }
    // A parameter changed after signing is caught too.
    auto r = request("CreateUploadVideo", {{"Title", "t"}, {"FileName", "f.mp4"}});
    auto headers = sign(r, app, app.secret);
    r.query["Title"] = "other";
    EXPECT_EQ(outcomeOf(send(r, headers)), "400 SignatureDoesNotMatch");
    EXPECT_TRUE(cloud.videos().empty());

    // Within the window is accepted, the action from the header and the parameters from the query; the
    // same request again is a replay.
    r = request("CreateUploadVideo", {{"Title", "a clip ~ with spaces"}, {"FileName", "clip.mp4"}}, now - 14min);
    EXPECT_EQ(outcomeOf(send(r)), "200");
    EXPECT_EQ(outcomeOf(send(r)), "400 SignatureNonceUsed");
    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].title, "a clip ~ with spaces");
    EXPECT_EQ(outcomeOf(send(request("RefreshUploadVideo", {{"VideoId", videos[0].videoId}}))), "200");
    EXPECT_EQ(cloud.videos()[0].refreshCount, 1);
}

}  // namespace
}  // namespace quorvane::emulator
