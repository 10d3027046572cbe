// The V4 (OSS4-HMAC-SHA256) half of the object-storage signature check, written from the service's rules
// and sharing nothing with the client's signer.
#include <algorithm>
#include <cctype>
#include <ctime>
#include <map>
#include <variant>

#include "emulator/oss_auth_failures.h"
#include "emulator/oss_signature_check.h"
#include "foundation/crypto.h"
#include "foundation/dates.h"

namespace quorvane::emulator {
namespace {

constexpr std::string_view kAlgorithm = "OSS4-HMAC-SHA256";

// "20240102T030405Z", UTC.
std::optional<foundation::SystemTime> parseV4Date(const std::string& text) {
    if (text.size() != 16 || text[8] != 'T' || text[15] != 'Z') return std::nullopt;
    for (std::size_t i = 0; i < 15; ++i)
        if (i != 8 && !std::isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
    std::tm tm{};
    tm.tm_year = std::stoi(text.substr(0, 4)) - 1900;
    tm.tm_mon = std::stoi(text.substr(4, 2)) - 1;
    tm.tm_mday = std::stoi(text.substr(6, 2));
    tm.tm_hour = std::stoi(text.substr(9, 2));
    tm.tm_min = std::stoi(text.substr(11, 2));
    tm.tm_sec = std::stoi(text.substr(13, 2));
    if (tm.tm_mon > 11 || tm.tm_mday < 1 || tm.tm_mday > 31 || tm.tm_hour > 23 || tm.tm_min > 59 || tm.tm_sec > 60)
        return std::nullopt;
    return std::chrono::system_clock::from_time_t(timegm(&tm));
}

std::vector<std::string> split(const std::string& s, char separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        auto at = s.find(separator, start);
        parts.push_back(s.substr(start, at == std::string::npos ? std::string::npos : at - start));
        if (at == std::string::npos) return parts;
        start = at + 1;
    }
}

struct V4Authorization {
    std::string keyId, date, region, service, terminator;
    std::vector<std::string> additionalHeaders;
    std::string signature;
};

OssAuthFailure malformed(const std::string& authorization, const std::string& why) {
    return authFailure(400, "InvalidArgument", "Authorization header is invalid: " + why + ".",
                       {{"ArgumentName", "Authorization"}, {"ArgumentValue", authorization}, {"EC", "0002-00000202"}});
}

// "OSS4-HMAC-SHA256 Credential=ID/DATE/REGION/oss/aliyun_v4_request[,AdditionalHeaders=a;b],Signature=HEX";
// spaces after the commas are tolerated.
std::variant<V4Authorization, OssAuthFailure> parseAuthorization(const std::string& authorization) {
    V4Authorization out;
    std::map<std::string, std::string> fields;
    for (const auto& item : split(authorization.substr(kAlgorithm.size() + 1), ',')) {
        auto field = trim(item);
        auto eq = field.find('=');
        if (eq == std::string::npos) return malformed(authorization, "\"" + field + "\" is not NAME=VALUE");
        auto name = field.substr(0, eq);
        if (name != "Credential" && name != "AdditionalHeaders" && name != "Signature")
            return malformed(authorization, "unknown field " + name);
        if (!fields.emplace(name, field.substr(eq + 1)).second)
            return malformed(authorization, name + " is given twice");
    }
    if (!fields.count("Credential") || !fields.count("Signature"))
        return malformed(authorization, "Credential and Signature are required");
    auto scope = split(fields["Credential"], '/');
    if (scope.size() != 5 || scope[0].empty() || scope[4] != "aliyun_v4_request" || scope[3] != "oss")
        return authFailure(400, "InvalidArgument",
                           "Credential is invalid: expected <AccessKeyId>/<yyyymmdd>/<region>/oss/aliyun_v4_request.",
                           {{"ArgumentName", "Credential"}, {"ArgumentValue", fields["Credential"]}, {"EC", "0002-00000213"}});
    out.keyId = scope[0];
    out.date = scope[1];
    out.region = scope[2];
    out.service = scope[3];
    out.terminator = scope[4];
    out.signature = fields["Signature"];
    if (out.signature.size() != 64 || !std::all_of(out.signature.begin(), out.signature.end(), [](unsigned char c) {
            return std::isdigit(c) || (c >= 'a' && c <= 'f');
        }))
        return malformed(authorization, "Signature is not 64 lower-case hex digits");
    if (auto it = fields.find("AdditionalHeaders"); it != fields.end() && !it->second.empty())
        for (auto& name : split(it->second, ';')) out.additionalHeaders.push_back(toLower(name));
    return out;
}

bool alwaysSigned(const std::string& lowerName) {
    return lowerName == "content-type" || lowerName == "content-md5" || startsWith(lowerName, "x-oss-");
}

std::string canonicalRequest(const OssSignedRequest& r, const std::vector<std::string>& additionalHeaders,
                             const std::string& payloadHash);

// The signature both forms end with: the string to sign over the canonical request, under the key
// derived for the day and region.
std::string expectedSignature(const std::string& secret, const V4Authorization& auth, const std::string& dateText,
                              const std::string& canonical, std::string& stringToSign) {
    const std::string scope = auth.date + "/" + auth.region + "/oss/aliyun_v4_request";
    stringToSign = std::string(kAlgorithm) + "\n" + dateText + "\n" + scope + "\n" + foundation::sha256Hex(canonical);
    std::string signingKey = foundation::hmacSha256Raw("aliyun_v4" + secret, auth.date);
    for (const char* step : {auth.region.c_str(), "oss", "aliyun_v4_request"})
        signingKey = foundation::hmacSha256Raw(signingKey, step);
    return foundation::hexLower(foundation::hmacSha256Raw(signingKey, stringToSign));
}

OssAuthFailure mismatch(const V4Authorization& auth, const std::string& stringToSign, const std::string& canonical) {
    return authFailure(403, "SignatureDoesNotMatch",
                       "The request signature we calculated does not match the signature you provided. "
                       "Check your key and signing method.",
                       {{"OSSAccessKeyId", auth.keyId},
                        {"SignatureProvided", auth.signature},
                        {"StringToSign", stringToSign},
                        {"StringToSignBytes", spacedHex(stringToSign)},
                        {"CanonicalRequest", canonical},
                        {"CanonicalRequestBytes", spacedHex(canonical)}});
}

}  // namespace

std::string ossV4CanonicalRequest(const OssSignedRequest& r, const std::vector<std::string>& additionalHeaders) {
    return canonicalRequest(r, additionalHeaders, headerValue(r.headers, "x-oss-content-sha256").value_or(""));
}

namespace {

std::string canonicalRequest(const OssSignedRequest& r, const std::vector<std::string>& additionalHeaders,
                             const std::string& payloadHash) {
    // Every segment encoded, the slashes kept: "/", "/bucket/", "/bucket/a//b".
    std::string uri;
    for (const auto& segment : split("/" + (r.bucket.empty() ? std::string() : r.bucket + "/" + r.key), '/'))
        uri += (uri.empty() && segment.empty() ? "" : "/") + percentEncode(segment);
    if (uri.empty()) uri = "/";

    std::vector<std::pair<std::string, std::string>> query;
    for (const auto& [name, value] : r.params) query.emplace_back(percentEncode(name), percentEncode(value));
    std::sort(query.begin(), query.end());
    std::string canonicalQuery;
    for (const auto& [name, value] : query) {
        if (!canonicalQuery.empty()) canonicalQuery += "&";
        canonicalQuery += value.empty() ? name : name + "=" + value;
    }

    std::map<std::string, std::string> signedHeaders;
    for (const auto& [k, v] : r.headers) {
        auto name = toLower(k);
        if (!alwaysSigned(name) &&
            std::find(additionalHeaders.begin(), additionalHeaders.end(), name) == additionalHeaders.end())
            continue;
        auto& slot = signedHeaders[name];
        slot = slot.empty() ? trim(v) : slot + "," + trim(v);
    }
    std::string canonicalHeaders;
    for (const auto& [k, v] : signedHeaders) canonicalHeaders += k + ":" + v + "\n";
    std::string additional;
    for (const auto& name : additionalHeaders) additional += (additional.empty() ? "" : ";") + name;

    return r.method + "\n" + uri + "\n" + canonicalQuery + "\n" + canonicalHeaders + "\n" + additional + "\n" +
           payloadHash;
}

}  // namespace

std::optional<OssAuthFailure> checkOssV4Signature(const OssSignedRequest& r, const std::string& authorization,
                                                  const KeyLookup& lookup, const OssSignaturePolicy& policy,
                                                  foundation::SystemTime now) {
    auto parsed = parseAuthorization(authorization);
    if (auto* failure = std::get_if<OssAuthFailure>(&parsed)) return *failure;
    const auto& auth = std::get<V4Authorization>(parsed);

    auto payload = headerValue(r.headers, "x-oss-content-sha256");
    if (!payload || *payload != "UNSIGNED-PAYLOAD")
        return authFailure(400, "InvalidArgument",
                           "x-oss-content-sha256 must be UNSIGNED-PAYLOAD when the signature is in the header.",
                           {{"ArgumentName", "x-oss-content-sha256"},
                            {"ArgumentValue", payload.value_or("")},
                            {"EC", "0002-00000214"}});
    auto dateText = headerValue(r.headers, "x-oss-date");
    auto date = dateText ? parseV4Date(*dateText) : std::nullopt;
    if (!date) return authFailure(403, "AccessDenied", "OSS V4 authentication requires a valid x-oss-date (yyyymmddTHHMMSSZ).");
    if (auto skewed = skewFailure(*date, *dateText, now)) return skewed;
    if (auth.date != dateText->substr(0, 8))
        return authFailure(400, "InvalidArgument",
                           "Invalid signing date in Authorization header: the credential's date " + auth.date +
                               " is not the day of x-oss-date " + *dateText + ".",
                           {{"ArgumentName", "Credential"}, {"ArgumentValue", auth.date}});
    if (auth.region != policy.region)
        return authFailure(400, "InvalidArgument",
                           "Invalid signing region in Authorization header: the bucket is in " + policy.region +
                               ", the credential names " + auth.region + ".",
                           {{"ArgumentName", "Credential"}, {"ArgumentValue", auth.region}, {"EC", "0002-00000228"}});
    for (const auto& name : auth.additionalHeaders)
        if (!headerValue(r.headers, name))
            return malformed(authorization, "AdditionalHeaders names " + name + ", which the request does not carry");

    KeyCheck key;
    if (auto refused = keyFailure(auth.keyId, r.headers, lookup, key)) return refused;

    auto canonical = ossV4CanonicalRequest(r, auth.additionalHeaders);
    std::string stringToSign;
    if (expectedSignature(key.secret, auth, *dateText, canonical, stringToSign) != auth.signature)
        return mismatch(auth, stringToSign, canonical);
    return std::nullopt;
}

std::optional<OssAuthFailure> checkOssV4PresignedSignature(const OssSignedRequest& r, const KeyLookup& lookup,
                                                           const OssSignaturePolicy& policy, foundation::SystemTime now) {
    auto param = [&](std::string_view name) -> std::optional<std::string> {
        for (const auto& [k, v] : r.params)
            if (k == name) return v;
        return std::nullopt;
    };
    auto missing = [](const std::string& name, const std::string& ec) {
        return authFailure(400, "InvalidArgument", "The presigned URL lacks " + name + ".",
                           {{"ArgumentName", name}, {"EC", ec}});
    };
    auto version = param("x-oss-signature-version");
    if (!version || *version != kAlgorithm)
        return authFailure(400, "InvalidArgument", "x-oss-signature-version must be OSS4-HMAC-SHA256.",
                           {{"ArgumentName", "x-oss-signature-version"}, {"ArgumentValue", version.value_or("")}});
    auto credential = param("x-oss-credential");
    if (!credential) return missing("x-oss-credential", "0002-00000217");
    auto expiresText = param("x-oss-expires");
    if (!expiresText) return missing("x-oss-expires", "0002-00000215");
    auto signature = param("x-oss-signature");
    if (!signature) return missing("x-oss-signature", "0002-00000216");
    auto dateText = param("x-oss-date");
    if (!dateText) return missing("x-oss-date", "0002-00000218");
    // The header form's parser checks the credential and signature shapes alike.
    std::string authorization = std::string(kAlgorithm) + " Credential=" + *credential + ",Signature=" + *signature;
    if (auto headers = param("x-oss-additional-headers"); headers && !headers->empty())
        authorization += ",AdditionalHeaders=" + *headers;
    auto parsed = parseAuthorization(authorization);
    if (auto* failure = std::get_if<OssAuthFailure>(&parsed)) return *failure;
    const auto& auth = std::get<V4Authorization>(parsed);

    long long expires = 0;
    try {
        std::size_t used = 0;
        expires = std::stoll(*expiresText, &used);
        if (used != expiresText->size()) expires = 0;
    } catch (const std::exception&) {
    }
    if (expires < 1 || expires > 604800)
        return authFailure(400, "InvalidArgument", "x-oss-expires must be 1 to 604800 seconds.",
                           {{"ArgumentName", "x-oss-expires"}, {"ArgumentValue", *expiresText}});
    auto date = parseV4Date(*dateText);
    if (!date) return authFailure(403, "AccessDenied", "x-oss-date is not a valid yyyymmddTHHMMSSZ time.");
    if (*date - now > std::chrono::minutes(15)) return skewFailure(*date, *dateText, now);
    if (now > *date + std::chrono::seconds(expires))
        return authFailure(403, "AccessDenied", "Request has expired.",
                           {{"Expires", *dateText + " + " + *expiresText + " s"},
                            {"ServerTime", foundation::iso8601Utc(now)}});
    if (auth.date != dateText->substr(0, 8))
        return authFailure(400, "InvalidArgument", "The credential's date " + auth.date + " is not the day of x-oss-date.",
                           {{"ArgumentName", "x-oss-credential"}, {"ArgumentValue", auth.date}});
    if (auth.region != policy.region)
        return authFailure(400, "InvalidArgument",
                           "Invalid signing region in the presigned URL: the bucket is in " + policy.region +
                               ", the credential names " + auth.region + ".",
                           {{"ArgumentName", "x-oss-credential"}, {"ArgumentValue", auth.region}});
    for (const auto& name : auth.additionalHeaders)
        if (!headerValue(r.headers, name))
            return authFailure(400, "InvalidArgument", "x-oss-additional-headers names " + name +
                                                           ", which the request does not carry.");

    // Under STS the token rides in the query; the key check reads it as the header form's.
    Pairs tokenHeaders;
    if (auto token = param("x-oss-security-token")) tokenHeaders.emplace_back("x-oss-security-token", *token);
    KeyCheck key;
    if (auto refused = keyFailure(auth.keyId, tokenHeaders, lookup, key)) return refused;

    OssSignedRequest unsignedRequest = r;
    std::erase_if(unsignedRequest.params, [](const auto& p) { return p.first == "x-oss-signature"; });
    auto canonical = canonicalRequest(unsignedRequest, auth.additionalHeaders, "UNSIGNED-PAYLOAD");
    std::string stringToSign;
    if (expectedSignature(key.secret, auth, *dateText, canonical, stringToSign) != auth.signature)
        return mismatch(auth, stringToSign, canonical);
    return std::nullopt;
}

}  // namespace quorvane::emulator
