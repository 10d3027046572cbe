#pragma once
// A running in-memory emulator per test, a plain HTTP client, and an independent V1 request signer.
#include <gtest/gtest.h>
#include <httplib.h>
#include <pugixml.hpp>

#include <map>
#include <string>

#include "emulator/cloud_emulator.h"
#include "foundation/crypto.h"
#include "foundation/dates.h"
#include "foundation/value.h"

namespace quorvane::emulator::testing {

// StringToSign by the published recipe, written here apart from the emulator's checker.
inline std::string v1Signature(const std::string& secret, const std::string& verb, const std::string& md5,
                               const std::string& type, const std::string& date,
                               const std::map<std::string, std::string>& ossHeaders, const std::string& resource) {
    std::string text = verb + "\n" + md5 + "\n" + type + "\n" + date + "\n";
    for (const auto& [k, v] : ossHeaders) text += k + ":" + v + "\n";
    return foundation::hmacSha1Base64(secret, text + resource);
}

struct Key {
    std::string id, secret, token;
};

// Headers of a signed request; `ossHeaders` must use lower-case names.
inline httplib::Headers signedHeaders(const Key& key, const std::string& verb, const std::string& resource,
                                      const std::string& type = "", const std::string& md5 = "",
                                      std::map<std::string, std::string> ossHeaders = {},
                                      foundation::SystemTime when = std::chrono::system_clock::now()) {
    if (!key.token.empty()) ossHeaders["x-oss-security-token"] = key.token;
    auto date = foundation::rfc1123Gmt(when);
    httplib::Headers h(ossHeaders.begin(), ossHeaders.end());
    h.emplace("Date", date);
    if (!md5.empty()) h.emplace("Content-MD5", md5);
    h.emplace("Authorization",
              "OSS " + key.id + ":" + v1Signature(key.secret, verb, md5, type, date, ossHeaders, resource));
    return h;
}

inline std::string xmlField(const std::string& xml, const char* name) {
    pugi::xml_document doc;
    doc.load_string(xml.c_str());
    return doc.first_child().child_value(name);
}

// "status Code" of an XML answer, or "status" alone when it names no code: both checked at once.
inline std::string outcome(const httplib::Result& res) {
    if (!res) return "no answer";
    auto code = xmlField(res->body, "Code");
    return std::to_string(res->status) + (code.empty() ? "" : " " + code);
}

inline Value json(const httplib::Result& res) { return foundation::parseJson(res->body).value_or(Value()); }

// The log service's tracking call: answered by every running cloud, signed by nobody.
inline const std::string kTrack = "/logstores/s/track?APIVersion=0.6.0";

inline std::string md5Base64(const std::string& data) { return foundation::base64Encode(foundation::md5Raw(data)); }

class CloudTest : public ::testing::Test {
protected:
    explicit CloudTest(EmulatorOptions options = {}) : cloud(options) {}
    void SetUp() override {
        ASSERT_TRUE(cloud.start());
        client = std::make_unique<httplib::Client>("127.0.0.1", cloud.port());
        client->set_read_timeout(60);
        root = {cloud.options().accessKeyId, cloud.options().accessKeySecret, ""};
    }

    std::string bucket() const { return cloud.options().bucket; }
    std::string path(const std::string& key) const { return "/" + bucket() + "/" + key; }

    httplib::Result putAs(const Key& k, const std::string& key, const std::string& body,
                          std::map<std::string, std::string> ossHeaders = {}, const std::string& md5 = "") {
        const std::string type = "application/octet-stream";
        return client->Put(path(key), signedHeaders(k, "PUT", path(key), type, md5, ossHeaders), body, type);
    }
    httplib::Result put(const std::string& key, const std::string& body, std::map<std::string, std::string> ossHeaders = {},
                        const std::string& md5 = "") {
        return putAs(root, key, body, std::move(ossHeaders), md5);
    }
    httplib::Result get(const std::string& key) { return client->Get(path(key), signedHeaders(root, "GET", path(key))); }

    CloudEmulator cloud;
    std::unique_ptr<httplib::Client> client;
    Key root;
};

}  // namespace quorvane::emulator::testing
