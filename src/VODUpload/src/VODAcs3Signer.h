#pragma once
// ACS3-HMAC-SHA256 ("V3") signing of an OpenAPI request: the common values travel as x-acs-* headers,
// the signature covers the method, path, query, those headers and the body's SHA-256, and the result
// goes in an Authorization header. Pure: the date and nonce are given, so a signature can be checked
// against a known one.
#include <string>
#include <utility>
#include <vector>

#include "foundation/http_client.h"

namespace quorvane {

inline constexpr const char* kVODAcs3Algorithm = "ACS3-HMAC-SHA256";

struct VODAcs3Request {
    std::string method = "GET";
    std::string path = "/";  // RPC-style actions always use "/"
    // The Host header exactly as sent: "vod.cn-shanghai.aliyuncs.com", "127.0.0.1:8080".
    std::string host;
    std::string action;   // x-acs-action
    std::string version;  // x-acs-version
    std::string date;     // x-acs-date, "2023-10-26T10:22:32Z" (UTC)
    std::string nonce;    // x-acs-signature-nonce, unique per request
    // x-acs-security-token for STS credentials; empty = not sent.
    std::string securityToken;
    // The action's parameters, not yet encoded; they go in the query string.
    std::vector<std::pair<std::string, std::string>> query;
    std::string body;
};

struct VODAcs3Signed {
    std::string canonicalQuery;   // also the query string to send, already encoded
    std::string canonicalRequest;
    std::string stringToSign;
    std::string signature;        // lower-case hex
    // Every signed header, then Authorization: the headers to send.
    foundation::Headers headers;
};

class VODAcs3Signer {
public:
    static VODAcs3Signed sign(const VODAcs3Request& request, const std::string& keyId, const std::string& keySecret);

    // Encoded "name=value" pairs sorted by encoded name, joined with "&".
    static std::string canonicalQuery(const std::vector<std::pair<std::string, std::string>>& query);
};

}  // namespace quorvane
