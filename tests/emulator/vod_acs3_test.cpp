// VOD OpenAPI requests signed ACS3-HMAC-SHA256 over loopback, signed by the test from the published
// recipe: what the service accepts, and the codes it refuses the rest with.
#include <set>

#include "emulator/util.h"
#include "emulator_test_support.h"

namespace quorvane::emulator {
namespace {

using namespace std::chrono_literals;
using testing::CloudTest;
using testing::Key;

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
    auto signature =
        foundation::hexLower(foundation::hmacSha256Raw(secret, "ACS3-HMAC-SHA256\n" + foundation::sha256Hex(canonical)));
    out.emplace("Authorization",
                "ACS3-HMAC-SHA256 Credential=" + key.id + ",SignedHeaders=" + names + ",Signature=" + signature);
    return out;
}

class VodAcs3Test : public CloudTest {
protected:
    void SetUp() override {
        CloudTest::SetUp();
        auto sts = cloud.issueSts();
        app = {sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken};
    }

    Acs3Request request(const std::string& action, std::map<std::string, std::string> query,
                        foundation::SystemTime when = std::chrono::system_clock::now()) {
        Acs3Request r{std::move(query), {}, {}};
        r.headers = {{"host", "127.0.0.1:" + std::to_string(cloud.port())},
                     {"x-acs-action", action},
                     {"x-acs-content-sha256", foundation::sha256Hex("")},
                     {"x-acs-date", foundation::iso8601Utc(when)},
                     {"x-acs-signature-nonce", newUuid()},
                     {"x-acs-security-token", app.token},
                     {"x-acs-version", "2017-03-21"}};
        return r;
    }
    httplib::Result send(const Acs3Request& r, const httplib::Headers& headers) {
        return client->Get("/?" + canonicalQuery(r.query), headers);
    }
    httplib::Result send(const Acs3Request& r) { return send(r, sign(r, app, app.secret)); }

    std::string codeOf(const httplib::Result& res) {
        if (!res) return "<no answer>";
        return foundation::parseJson(res->body).value_or(Value::object()).value("Code", "");
    }

    Key app;
};

TEST_F(VodAcs3Test, ActionFromTheHeaderAndParametersFromTheQuery) {
    auto res = send(request("CreateUploadVideo", {{"Title", "a clip ~ with spaces"}, {"FileName", "clip.mp4"}}));
    ASSERT_TRUE(res);
    ASSERT_EQ(res->status, 200) << res->body;
    auto videos = cloud.videos();
    ASSERT_EQ(videos.size(), 1u);
    EXPECT_EQ(videos[0].title, "a clip ~ with spaces");

    auto refresh = send(request("RefreshUploadVideo", {{"VideoId", videos[0].videoId}}));
    ASSERT_TRUE(refresh);
    EXPECT_EQ(refresh->status, 200) << refresh->body;
    EXPECT_EQ(cloud.videos()[0].refreshCount, 1);
}

TEST_F(VodAcs3Test, RefusesWhatTheServiceRefusesWithItsCodes) {
    const std::map<std::string, std::string> params = {{"Title", "t"}, {"FileName", "f.mp4"}};
    auto now = std::chrono::system_clock::now();
    struct Case {
        const char* what;
        std::function<httplib::Result()> call;
        int status;
        const char* code;
    };
    std::vector<Case> cases = {
        {"wrong secret", [&] { auto r = request("CreateUploadVideo", params); return send(r, sign(r, app, app.secret + "x")); },
         400, "SignatureDoesNotMatch"},
        {"signature changed",
         [&] {
             auto r = request("CreateUploadVideo", params);
             auto headers = sign(r, app, app.secret);
             auto auth = headers.find("Authorization")->second;
             auth.back() = auth.back() == '0' ? '1' : '0';
             headers.erase("Authorization");
             headers.emplace("Authorization", auth);
             return send(r, headers);
         },
         400, "SignatureDoesNotMatch"},
        {"query changed after signing",
         [&] {
             auto r = request("CreateUploadVideo", params);
             auto headers = sign(r, app, app.secret);
             r.query["Title"] = "other";
             return send(r, headers);
         },
         400, "SignatureDoesNotMatch"},
        {"body hash that is not the body's",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.headers["x-acs-content-sha256"] = foundation::sha256Hex("x");
             return send(r);
         },
         400, "SignatureDoesNotMatch"},
        {"unknown key",
         [&] { auto r = request("CreateUploadVideo", params); return send(r, sign(r, {"LTAInobody", "", ""}, app.secret)); },
         404, "InvalidAccessKeyId.NotFound"},
        {"dated 16 minutes ago", [&] { return send(request("CreateUploadVideo", params, now - 16min)); }, 400,
         "InvalidTimeStamp.Expired"},
        {"dated 16 minutes ahead", [&] { return send(request("CreateUploadVideo", params, now + 16min)); }, 400,
         "InvalidTimeStamp.Expired"},
        {"date not ISO 8601",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.headers["x-acs-date"] = foundation::rfc1123Gmt(now);
             return send(r);
         },
         400, "InvalidTimeStamp.Format"},
        {"no nonce",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.headers.erase("x-acs-signature-nonce");
             return send(r);
         },
         400, "MissingParameter"},
        {"no version",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.headers.erase("x-acs-version");
             return send(r);
         },
         400, "MissingParameter"},
        {"security token not signed",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.unsignedHeaders.insert("x-acs-security-token");
             return send(r);
         },
         400, "IncompleteSignature"},
        {"no security token for an STS key",
         [&] {
             auto r = request("CreateUploadVideo", params);
             r.headers.erase("x-acs-security-token");
             return send(r);
         },
         400, "MissingSecurityToken"},
        {"authorization without a signature",
         [&] {
             auto r = request("CreateUploadVideo", params);
             auto headers = sign(r, app, app.secret);
             auto auth = headers.find("Authorization")->second;
             headers.erase("Authorization");
             headers.emplace("Authorization", auth.substr(0, auth.find(",Signature=")));
             return send(r, headers);
         },
         400, "InvalidParameter"},
    };
    for (const auto& c : cases) {
        auto res = c.call();
        ASSERT_TRUE(res) << c.what;
        EXPECT_EQ(res->status, c.status) << c.what << ": " << res->body;
        EXPECT_EQ(codeOf(res), c.code) << c.what;
    }
    EXPECT_TRUE(cloud.videos().empty());

    // Within the window is accepted; the same request again is a replay.
    auto r = request("CreateUploadVideo", params, now - 14min);
    auto first = send(r);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 200) << first->body;
    auto again = send(r);
    ASSERT_TRUE(again);
    EXPECT_EQ(codeOf(again), "SignatureNonceUsed");
}

}  // namespace
}  // namespace quorvane::emulator
