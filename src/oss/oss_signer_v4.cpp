#include "oss/oss_signer_v4.h"

#include <algorithm>

#include "foundation/crypto.h"
#include "oss/oss_error.h"
#include "oss/oss_header_text.h"

namespace quorvane::oss {
namespace {

bool alwaysSigned(const std::string& lowerName) {
    return lowerName == "content-type" || lowerName == "content-md5" || lowerName.rfind("x-oss-", 0) == 0;
}

std::string joined(const std::vector<std::string>& names, char separator) {
    std::string out;
    for (const auto& name : names) {
        if (!out.empty()) out += separator;
        out += name;
    }
    return out;
}

}  // namespace

std::string v4DateTime(foundation::SystemTime t) { return foundation::formatTime(t, "%Y%m%dT%H%M%SZ", true); }

std::string v4Encode(std::string_view text) {
    // libcurl's escape keeps exactly the unreserved set and writes upper-case hex.
    return foundation::urlEncode(text);
}

std::string v4CanonicalUri(const std::string& bucket, const std::string& objectKey) {
    std::string path = "/";
    if (!bucket.empty()) path += bucket + "/" + objectKey;
    std::string out;
    std::size_t start = 0;
    while (true) {
        auto slash = path.find('/', start);
        out += v4Encode(std::string_view(path).substr(start, slash == std::string::npos ? std::string::npos : slash - start));
        if (slash == std::string::npos) break;
        out += '/';
        start = slash + 1;
    }
    return out;
}

std::string v4CanonicalQuery(const OSSQuery& query) {
    std::vector<std::pair<std::string, std::string>> encoded;
    encoded.reserve(query.size());
    for (const auto& [name, value] : query) encoded.emplace_back(v4Encode(name), value ? v4Encode(*value) : "");
    std::sort(encoded.begin(), encoded.end());
    std::string out;
    for (const auto& [name, value] : encoded) {
        if (!out.empty()) out += '&';
        out += name;
        if (!value.empty()) out += "=" + value;
    }
    return out;
}

std::vector<std::string> v4AdditionalHeaderNames(const std::vector<std::string>& names) {
    std::vector<std::string> out;
    for (const auto& name : names) {
        auto l = lowerAscii(trimBlanks(name));
        if (!l.empty() && !alwaysSigned(l)) out.push_back(l);
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

std::string v4CanonicalHeaders(const foundation::Headers& headers, const std::vector<std::string>& additional) {
    std::vector<std::pair<std::string, std::string>> picked;
    for (const auto& [k, v] : headers) {
        auto name = lowerAscii(k);
        if (alwaysSigned(name) || std::binary_search(additional.begin(), additional.end(), name))
            picked.emplace_back(name, trimBlanks(v));
    }
    std::stable_sort(picked.begin(), picked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string out;
    for (const auto& [k, v] : picked) out += k + ":" + v + "\n";
    return out;
}

std::string v4CanonicalRequest(const std::string& method, const std::string& bucket, const std::string& objectKey,
                               const OSSQuery& query, const foundation::Headers& headers,
                               const std::vector<std::string>& additional) {
    std::string payload = kOSSUnsignedPayload;
    for (const auto& [k, v] : headers)
        if (lowerAscii(k) == "x-oss-content-sha256") payload = trimBlanks(v);
    return method + "\n" + v4CanonicalUri(bucket, objectKey) + "\n" + v4CanonicalQuery(query) + "\n" +
           v4CanonicalHeaders(headers, additional) + "\n" + joined(additional, ';') + "\n" + payload;
}

std::string v4Scope(const std::string& date, const std::string& region) {
    return date + "/" + region + "/oss/aliyun_v4_request";
}

std::string v4StringToSign(const std::string& dateTime, const std::string& region,
                           const std::string& canonicalRequest) {
    return std::string(kOSSV4Algorithm) + "\n" + dateTime + "\n" + v4Scope(dateTime.substr(0, 8), region) + "\n" +
           foundation::sha256Hex(canonicalRequest);
}

std::string v4Signature(const std::string& secret, const std::string& date, const std::string& region,
                        const std::string& stringToSign) {
    auto key = foundation::hmacSha256Raw("aliyun_v4" + secret, date);
    key = foundation::hmacSha256Raw(key, region);
    key = foundation::hmacSha256Raw(key, "oss");
    key = foundation::hmacSha256Raw(key, "aliyun_v4_request");
    return foundation::hexLower(foundation::hmacSha256Raw(key, stringToSign));
}

OSSV4Signer::OSSV4Signer(std::string region, std::vector<std::string> additionalHeaders)
    : region_(std::move(region)), additional_(v4AdditionalHeaderNames(additionalHeaders)) {}

std::optional<Error> OSSV4Signer::sign(const std::string& method, const std::string& bucket,
                                       const std::string& objectKey, const OSSQuery& query,
                                       foundation::Headers& headers, OSSCredentialProvider& provider,
                                       foundation::SystemTime now) const {
    if (!provider.providesSecret())
        return makeClientError(OSSClientErrorCodeSignFailed,
                               "This credential provider signs V1 strings only: give the client an access key "
                               "pair or STS credentials for V4, or set signatureVersion to V1");
    Error error;
    auto credentials = provider.currentCredentials(&error);
    if (!credentials) return error;
    if (credentials->accessKeySecret.empty())
        return makeClientError(OSSClientErrorCodeSignFailed, "Can't sign the request: no access key secret");
    const auto dateTime = v4DateTime(now);
    headers.emplace_back("x-oss-date", dateTime);
    if (!hasHeader(headers, "x-oss-content-sha256")) headers.emplace_back("x-oss-content-sha256", kOSSUnsignedPayload);
    if (credentials->securityToken && !hasHeader(headers, "x-oss-security-token"))
        headers.emplace_back("x-oss-security-token", *credentials->securityToken);
    // Only the optional headers this request carries are signed (a part has no Content-Type, say).
    std::vector<std::string> additional;
    for (const auto& name : additional_)
        if (hasHeader(headers, name)) additional.push_back(name);
    const auto canonical = v4CanonicalRequest(method, bucket, objectKey, query, headers, additional);
    const auto date = dateTime.substr(0, 8);
    const auto signature =
        v4Signature(credentials->accessKeySecret, date, region_, v4StringToSign(dateTime, region_, canonical));
    std::string authorization = std::string(kOSSV4Algorithm) + " Credential=" + credentials->accessKeyId + "/" +
                                v4Scope(date, region_) + ",";
    if (!additional.empty()) authorization += "AdditionalHeaders=" + joined(additional, ';') + ",";
    authorization += "Signature=" + signature;
    headers.emplace_back("Authorization", std::move(authorization));
    return std::nullopt;
}

}  // namespace quorvane::oss
