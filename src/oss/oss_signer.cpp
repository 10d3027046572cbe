#include "oss/oss_signer.h"

#include <algorithm>
#include <set>

#include "oss/oss_header_text.h"

namespace quorvane::oss {
namespace {

const std::set<std::string>& subResources() {
    static const std::set<std::string> names = {
        "acl", "uploads", "location", "cors", "logging", "website", "referer", "lifecycle", "delete", "append",
        "tagging", "objectMeta", "uploadId", "partNumber", "security-token", "position", "img", "style",
        "styleName", "replication", "replicationProgress", "replicationLocation", "cname", "bucketInfo", "comp",
        "qos", "live", "status", "vod", "startTime", "endTime", "symlink", "x-oss-process",
        "response-content-type", "response-content-language", "response-expires", "response-cache-control",
        "response-content-disposition", "response-content-encoding", "restore", "callback", "callback-var",
        "versionId", "versioning", "versions", "sequential"};
    return names;
}

std::string headerValue(const foundation::Headers& headers, const std::string& name) {
    for (const auto& [k, v] : headers)
        if (lowerAscii(k) == name) return v;
    return {};
}

}  // namespace

bool isSignedSubResource(const std::string& name) { return subResources().count(name) > 0; }

std::string canonicalizedOSSHeaders(const foundation::Headers& headers) {
    std::vector<std::pair<std::string, std::string>> picked;
    for (const auto& [k, v] : headers) {
        auto name = lowerAscii(k);
        if (name.rfind("x-oss-", 0) == 0) picked.emplace_back(name, trimBlanks(v));
    }
    std::stable_sort(picked.begin(), picked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string out;
    for (const auto& [k, v] : picked) out += k + ":" + v + "\n";
    return out;
}

std::string canonicalizedResource(const std::string& bucket, const std::string& objectKey, const OSSQuery& query) {
    std::string resource = "/";
    if (!bucket.empty()) resource += bucket + "/" + objectKey;
    std::vector<std::pair<std::string, std::optional<std::string>>> signedParams;
    for (const auto& p : query)
        if (isSignedSubResource(p.first)) signedParams.push_back(p);
    std::stable_sort(signedParams.begin(), signedParams.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    char separator = '?';
    for (const auto& [name, value] : signedParams) {
        resource += separator;
        resource += name;
        if (value && !value->empty()) resource += "=" + *value;
        separator = '&';
    }
    return resource;
}

std::string stringToSign(const std::string& method, const foundation::Headers& headers,
                         const std::string& canonicalResource) {
    std::string date = hasHeader(headers, "x-oss-date") ? headerValue(headers, "x-oss-date") : headerValue(headers, "date");
    return method + "\n" + headerValue(headers, "content-md5") + "\n" + headerValue(headers, "content-type") + "\n" +
           date + "\n" + canonicalizedOSSHeaders(headers) + canonicalResource;
}

std::optional<Error> signRequest(const std::string& method, const std::string& bucket, const std::string& objectKey,
                                 const OSSQuery& query, foundation::Headers& headers, OSSCredentialProvider& provider,
                                 foundation::SystemTime now) {
    Error error;
    auto credentials = provider.currentCredentials(&error);
    if (!credentials) return error;
    if (!hasHeader(headers, "date")) headers.emplace_back("Date", foundation::rfc1123Gmt(now));
    if (credentials->securityToken && !hasHeader(headers, "x-oss-security-token"))
        headers.emplace_back("x-oss-security-token", *credentials->securityToken);
    auto toSign = stringToSign(method, headers, canonicalizedResource(bucket, objectKey, query));
    auto authorization = provider.authorization(toSign, *credentials, &error);
    if (!authorization) return error;
    headers.emplace_back("Authorization", *authorization);
    return std::nullopt;
}

}  // namespace quorvane::oss
