#include "emulator/oss_signature_check.h"

#include <algorithm>
#include <map>
#include <set>

#include "emulator/oss_auth_failures.h"
#include "emulator/oss_header_spellings.h"
#include "foundation/crypto.h"
#include "foundation/dates.h"

namespace quorvane::emulator {
namespace {

// Query parameters that name a sub-resource and are therefore signed; the union of what the service
// documents and what its clients sign.
const std::set<std::string>& subResources() {
    static const std::set<std::string> names = {
        "acl", "uploads", "location", "cors", "logging", "website", "referer", "lifecycle", "delete", "append",
        "tagging", "objectMeta", "uploadId", "partNumber", "security-token", "position", "img", "style",
        "styleName", "replication", "replicationProgress", "replicationLocation", "cname", "bucketInfo", "comp",
        "qos", "live", "status", "vod", "startTime", "endTime", "symlink", "x-oss-process", "response-content-type",
        "response-content-language", "response-expires", "response-cache-control", "response-content-disposition",
        "response-content-encoding", "restore", "callback", "callback-var", "versionId", "versioning", "versions",
        "policy", "requestPayment", "encryption", "worm", "wormId", "wormExtend", "inventory", "inventoryId",
        "continuation-token", "stat", "sequential", "x-oss-traffic-limit", "x-oss-request-payer", "udf", "udfName",
        "udfImage", "udfId", "udfImageDesc", "udfApplication", "udfApplicationLog", "qosInfo", "asyncFetch",
        "withHashContext", "x-oss-enable-md5", "x-oss-enable-sha1", "x-oss-enable-sha256", "x-oss-hash-ctx",
        "x-oss-md5-ctx", "transferAcceleration", "regionList", "cloudboxes", "x-oss-ac-source-ip",
        "x-oss-ac-subnet-mask", "x-oss-ac-vpc-id", "x-oss-ac-forward-allow", "metaQuery", "resourceGroup", "rtc",
        "x-oss-async-process", "responseHeader"};
    return names;
}

std::string canonicalHeaders(const Pairs& headers) {
    std::map<std::string, std::string> ossHeaders;  // byte order of lower-cased names
    for (const auto& [k, v] : headers) {
        auto name = toLower(k);
        if (!startsWith(name, "x-oss-")) continue;
        auto& slot = ossHeaders[name];
        slot = slot.empty() ? trim(v) : slot + "," + trim(v);
    }
    std::string out;
    for (const auto& [k, v] : ossHeaders) out += k + ":" + v + "\n";
    return out;
}

std::string canonicalResource(const OssSignedRequest& r) {
    std::string out = "/";
    if (!r.bucket.empty()) out += r.bucket + "/" + r.key;
    std::vector<std::pair<std::string, std::string>> signedParams;
    for (const auto& p : r.params)
        if (subResources().count(p.first)) signedParams.push_back(p);
    std::sort(signedParams.begin(), signedParams.end());
    for (std::size_t i = 0; i < signedParams.size(); ++i) {
        out += (i == 0 ? "?" : "&") + signedParams[i].first;
        if (!signedParams[i].second.empty()) out += "=" + signedParams[i].second;
    }
    return out;
}

}  // namespace

std::string ossStringToSign(const OssSignedRequest& r) {
    auto date = headerValue(r.headers, "x-oss-date");
    if (!date) date = headerValue(r.headers, "Date");
    return r.method + "\n" + headerValue(r.headers, "Content-MD5").value_or("") + "\n" +
           headerValue(r.headers, "Content-Type").value_or("") + "\n" + date.value_or("") + "\n" +
           canonicalHeaders(r.headers) + canonicalResource(r);
}

namespace {

// One spelling of the request's headers, V1 or V4.
std::optional<OssAuthFailure> checkSpelling(const OssSignedRequest& r, const KeyLookup& lookup,
                                            const OssSignaturePolicy& policy, foundation::SystemTime now) {
    auto auth = headerValue(r.headers, "Authorization");
    const bool presigned = std::any_of(r.params.begin(), r.params.end(),
                                       [](const auto& p) { return p.first == "x-oss-signature-version"; });
    if (!auth && presigned) return checkOssV4PresignedSignature(r, lookup, policy, now);
    if (!auth) return authFailure(403, "AccessDenied", "You have no right to access this object because of bucket acl.");
    if (startsWith(*auth, "OSS4-HMAC-SHA256 ")) return checkOssV4Signature(r, *auth, lookup, policy, now);
    auto colon = auth->rfind(':');
    if (!startsWith(*auth, "OSS ") || colon == std::string::npos || colon <= 4 || colon + 1 >= auth->size())
        return authFailure(400, "InvalidArgument", "Authorization header is invalid.",
                           {{"ArgumentName", "Authorization"}, {"ArgumentValue", *auth}});
    if (!policy.acceptV1)
        return authFailure(403, "AccessDenied",
                           "This bucket does not accept V1 signatures: sign requests with OSS4-HMAC-SHA256.",
                           {{"EC", "0002-00000080"}});
    auto keyId = auth->substr(4, colon - 4);
    auto provided = auth->substr(colon + 1);

    auto dateText = headerValue(r.headers, "x-oss-date");
    if (!dateText) dateText = headerValue(r.headers, "Date");
    auto date = dateText ? foundation::parseRfc1123(*dateText) : std::nullopt;
    if (!date) return authFailure(403, "AccessDenied", "OSS authentication requires a valid Date.");
    if (auto skewed = skewFailure(*date, *dateText, now)) return skewed;

    KeyCheck key;
    if (auto refused = keyFailure(keyId, r.headers, lookup, key)) return refused;

    auto stringToSign = ossStringToSign(r);
    if (foundation::hmacSha1Base64(key.secret, stringToSign) != provided)
        return authFailure(403, "SignatureDoesNotMatch",
                           "The request signature we calculated does not match the signature you provided. "
                           "Check your key and signing method.",
                           {{"OSSAccessKeyId", keyId},
                            {"SignatureProvided", provided},
                            {"StringToSign", stringToSign},
                            {"StringToSignBytes", spacedHex(stringToSign)}});
    return std::nullopt;
}

}  // namespace

std::optional<OssAuthFailure> checkOssSignature(const OssSignedRequest& r, const KeyLookup& lookup,
                                                const OssSignaturePolicy& policy, foundation::SystemTime now) {
    auto failure = checkSpelling(r, lookup, policy, now);
    // Re-encoded spellings are tried only on a mismatch, so every other refusal stays as it was.
    if (!failure || failure->code != "SignatureDoesNotMatch") return failure;
    for (auto& headers : encodedHeaderSpellings(r.headers)) {
        auto respelled = r;
        respelled.headers = std::move(headers);
        if (!checkSpelling(respelled, lookup, policy, now)) return std::nullopt;
    }
    return failure;
}

std::optional<std::string> headerValue(const Pairs& headers, std::string_view name) {
    for (const auto& [k, v] : headers)
        if (iequals(k, name)) return v;
    return std::nullopt;
}

OssAuthFailure authFailure(int status, std::string code, std::string message, Pairs extra) {
    return {status, std::move(code), std::move(message), std::move(extra)};
}

std::string spacedHex(const std::string& s) {
    auto hex = foundation::hexUpper(s);
    std::string out;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        if (i) out += ' ';
        out += hex.substr(i, 2);
    }
    return out;
}

std::optional<OssAuthFailure> skewFailure(foundation::SystemTime requestTime, const std::string& requestTimeText,
                                          foundation::SystemTime now) {
    auto skew = std::chrono::duration_cast<std::chrono::milliseconds>(requestTime > now ? requestTime - now
                                                                                        : now - requestTime);
    if (skew <= std::chrono::minutes(15)) return std::nullopt;
    return authFailure(403, "RequestTimeTooSkewed",
                       "The difference between the request time and the current time is too large.",
                       {{"RequestTime", requestTimeText},
                        {"ServerTime", foundation::iso8601Utc(now)},
                        {"MaxAllowedSkewMilliseconds", "900000"}});
}

std::optional<OssAuthFailure> keyFailure(const std::string& keyId, const Pairs& headers, const KeyLookup& lookup,
                                         KeyCheck& key) {
    auto token = headerValue(headers, "x-oss-security-token");
    key = lookup(keyId, token);
    if (!key.known || (key.sts && key.token == TokenState::Missing))
        return authFailure(403, "InvalidAccessKeyId", "The OSS Access Key Id you provided does not exist in our records.",
                           {{"OSSAccessKeyId", keyId}});
    if (key.sts && key.token == TokenState::Invalid)
        return authFailure(403, "InvalidSecurityToken", "The security token you provided is invalid.",
                           {{"SecurityToken", token.value_or("")}});
    if (key.sts && key.token == TokenState::Expired)
        return authFailure(403, "SecurityTokenExpired", "The security token you provided has expired.",
                           {{"SecurityToken", token.value_or("")}});
    return std::nullopt;
}

}  // namespace quorvane::emulator
