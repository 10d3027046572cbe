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
    auto toSign = "ACS3-HMAC-SHA256\n" + foundation::sha256Hex(canonical);
    auto signature = foundation::hexLower(foundation::hmacSha256Raw(secret, toSign));
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
        int status;
        const char* code;
    };
    const std::string right = app.secret;
    std::vector<Case> cases = {
        {"wrong secret", {}, {}, right + "x", 400, "SignatureDoesNotMatch"},
        {"signature changed", {},
         authorization([](std::string a) { return a.back() = a.back() == '0' ? '1' : '0', a; }), right,
         400, "SignatureDoesNotMatch"},
        {"body hash not the body's",
         [](Acs3Request& r) { r.headers["x-acs-content-sha256"] = foundation::sha256Hex("x"); }, {}, right,
         400, "SignatureDoesNotMatch"},
        {"unknown key", {},
         authorization([&](std::string a) { return a.replace(a.find(app.id), app.id.size(), "LTAInobody"); }), right,
         404, "InvalidAccessKeyId.NotFound"},
        {"dated 16 minutes ago", at(-16min), {}, right, 400, "InvalidTimeStamp.Expired"},
        {"dated 16 minutes ahead", at(16min), {}, right, 400, "InvalidTimeStamp.Expired"},
        {"date not ISO 8601", [&](Acs3Request& r) { r.headers["x-acs-date"] = foundation::rfc1123Gmt(now); }, {}, right,
         400, "InvalidTimeStamp.Format"},
        {"no nonce", drop("x-acs-signature-nonce"), {}, right, 400, "MissingParameter"},
        {"no version", drop("x-acs-version"), {}, right, 400, "MissingParameter"},
        {"no security token for an STS key", drop("x-acs-security-token"), {}, right, 400, "MissingSecurityToken"},
        {"security token not signed", [](Acs3Request& r) { r.unsignedHeaders.insert("x-acs-security-token"); }, {},
         right, 400, "IncompleteSignature"},
        {"authorization without a signature", {},
         authorization([](std::string a) { return a.substr(0, a.find(",Signature=")); }), right,
         400, "InvalidParameter"},
    };
    for (const auto& c : cases) {
        auto r = request("CreateUploadVideo", {{"Title", "t"}, {"FileName", "f.mp4"}});
        if (c.before) c.before(r);
        auto headers = sign(r, app, c.secret);
        if (c.after) c.after(headers);
        auto res = send(r, headers);
        ASSERT_TRUE(res) << c.what;
        EXPECT_EQ(res->status, c.status) << c.what << ": " << res->body;
        EXPECT_EQ(codeOf(res), c.code) << c.what;
    }
    // A parameter changed after signing is caught too.
    auto r = request("CreateUploadVideo", {{"Title", "t"}, {"FileName", "f.mp4"}});
    auto headers = sign(r, app, app.secret);
    r.query["Title"] = "other";
    EXPECT_EQ(codeOf(send(r, headers)), "SignatureDoesNotMatch");
    EXPECT_TRUE(cloud.videos().empty());

    // Within the window is accepted; the same request again is a replay.
    r = request("CreateUploadVideo", {{"Title", "t"}, {"FileName", "f.mp4"}}, now - 14min);
    auto first = send(r);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 200) << first->body;
    EXPECT_EQ(codeOf(send(r)), "SignatureNonceUsed");
}

}  // namespace
}  // namespace quorvane::emulator
