#include "VODUpload/src/VODOpenApi.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <locale>
#include <random>
#include <vector>

#include "VODUpload/src/VODLog.h"
#include "foundation/crypto.h"
#include "foundation/dates.h"

namespace quorvane {

const char* const VODOpenApiTokenExpired = "InvalidSecurityToken.Expired";
const char* const VODOpenApiVideoNotFound = "InvalidVideo.NotFound";

namespace {

constexpr const char* kLogSource = "VODUpload/src/VODOpenApi";

// The text a value prints as: a string itself, a number its decimal text, a boolean 1 or 0.
std::string valueText(const Value& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    if (value.is_null()) return "<null>";
    return foundation::toJsonText(value);
}

// The process's locale (from the environment), falling back to the classic one when the
// environment names a locale this system does not have.
const std::locale& collationLocale() {
    static const std::locale locale = [] {
        try {
            return std::locale("");
        } catch (const std::exception&) {
            return std::locale::classic();
        }
    }();
    return locale;
}

std::string asciiLower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

// Locale-aware, case-insensitive order of whole pair texts. The pairs are percent-encoded, so
// they are pure ASCII and folding ASCII letters is a complete case folding.
bool pairLess(const std::string& a, const std::string& b) {
    const auto& collate = std::use_facet<std::collate<char>>(collationLocale());
    std::string la = asciiLower(a), lb = asciiLower(b);
    return collate.compare(la.data(), la.data() + la.size(), lb.data(), lb.data() + lb.size()) < 0;
}

Value commonParams(const std::string& keyId, const std::string& token, const std::string& nonce) {
    Value params = Value::object();
    params["Format"] = "JSON";
    params["Version"] = "2017-03-21";
    params["AccessKeyId"] = keyId;
    params["SignatureMethod"] = "HMAC-SHA1";
    params["SignatureVersion"] = "1.0";
    params["SignatureNonce"] = nonce;
    params["SecurityToken"] = token;
    return params;
}

void mergeInto(Value& target, const Value& extra) {
    if (!extra.is_object()) return;
    for (auto it = extra.begin(); it != extra.end(); ++it) target[it.key()] = it.value();
}

// The platform's wording for an error without a description of its own.
std::string defaultDescription(const std::string& domain, long long code) {
    return "The operation couldn't be completed. (" + domain + " error " + std::to_string(code) + ".)";
}

void handleReply(foundation::HttpResult result, const VODOpenApiCompletionHandler& handler) {
    if (!result.ok()) {
        handler(std::nullopt, std::nullopt, std::move(result.error));
        return;
    }
    auto& response = result.response;
    if (response.body.empty()) {
        Error error(kVODEmptyDataErrorDomain, kVODEmptyDataErrorCode,
                    defaultDescription(kVODEmptyDataErrorDomain, kVODEmptyDataErrorCode));
        handler(std::move(response), std::nullopt, std::move(error));
        return;
    }
    std::optional<Error> parseError;
    auto parsed = parseVodReply(response.body, parseError);
    if (!parsed) {
        handler(std::move(response), std::nullopt, std::move(parseError));
        return;
    }
    Value reply = std::move(*parsed);
    if (response.status >= 300) {
        Error error(kVODOpenApiErrorDomain, response.status, defaultDescription(kVODOpenApiErrorDomain, response.status),
                    reply);
        handler(std::move(response), std::move(reply), std::move(error));
        return;
    }
    handler(std::move(response), std::move(reply), std::nullopt);
}

}  // namespace

std::optional<Value> parseVodReply(const std::string& body, std::optional<Error>& error) {
    try {
        return Value::parse(body);
    } catch (const nlohmann::json::exception& e) {
        error = Error(kVODJsonErrorDomain, e.id, e.what());
        return std::nullopt;
    }
}

std::string VODOpenApi::percentEncode(const Value& value) {
    static const char* hex = "0123456789ABCDEF";
    std::string text = valueText(value), out;
    out.reserve(text.size() * 3);
    for (unsigned char c : text) {
        bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                          c == '.' || c == '_' || c == '~';
        if (unreserved) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 0x0F]);
        }
    }
    // Nothing is left for these after the escaping above; they stay as the service's rule states them.
    auto replaceAll = [&out](const std::string& from, const std::string& to) {
        for (std::size_t at = out.find(from); at != std::string::npos; at = out.find(from, at + to.size()))
            out.replace(at, from.size(), to);
    };
    replaceAll("+", "%20");
    replaceAll("*", "%2A");
    replaceAll("%7E", "~");
    return out;
}

std::string VODOpenApi::getParamsString(const Value& params) {
    std::vector<std::string> pairs;
    if (params.is_object())
        for (auto it = params.begin(); it != params.end(); ++it)
            pairs.push_back(percentEncode(it.key()) + "=" + percentEncode(it.value()));
    std::sort(pairs.begin(), pairs.end(), pairLess);
    std::string query;
    for (const auto& pair : pairs) {
        if (!query.empty()) query.push_back('&');
        query += pair;
    }
    return query;
}

std::string VODOpenApi::timeStamp() { return foundation::iso8601Utc(std::chrono::system_clock::now()); }

std::string VODOpenApi::randomUUID() {
    static thread_local std::mt19937_64 engine{std::random_device{}()};
    unsigned char bytes[16];
    for (int i = 0; i < 16; i += 8) {
        std::uint64_t r = engine();
        for (int j = 0; j < 8; ++j) bytes[i + j] = static_cast<unsigned char>(r >> (8 * j));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9],
                  bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

std::string VODOpenApi::hmacSha1(const std::string& key, const std::string& data) {
    // Both texts are C strings: they end at their first zero byte.
    return foundation::hmacSha1Base64(key.c_str(), data.c_str());
}

std::string VODOpenApi::stringToSign(const std::string& canonicalQuery) {
    return "GET&" + percentEncode("/") + "&" + percentEncode(canonicalQuery);
}

std::string VODOpenApi::signature(const std::string& keySecret, const std::string& canonicalQuery) {
    return hmacSha1(keySecret + "&", stringToSign(canonicalQuery));
}

std::string VODOpenApi::requestUrl(const std::string& keyId, const std::string& keySecret, const std::string& token,
                                   const std::string& region, const Value& params, const std::string& nonce) {
    return requestUrl(keyId, keySecret, token, region, params, nonce, VODServiceConfig::current());
}

std::string VODOpenApi::requestUrl(const std::string& keyId, const std::string& keySecret, const std::string& token,
                                   const std::string& region, const Value& params, const std::string& nonce,
                                   const VODServiceConfig& config) {
    Value merged = commonParams(keyId, token, nonce);
    mergeInto(merged, params);
    std::string query = getParamsString(merged);
    return config.urlForRegion(region) + "?" + query + "&" + percentEncode("Signature") + "=" +
           percentEncode(signature(keySecret, query));
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::request(const std::string& keyId, const std::string& keySecret,
                                                          const std::string& token, const std::string& region,
                                                          const Value& params,
                                                          VODOpenApiCompletionHandler completionHandler) {
    return request(keyId, keySecret, token, region, params, std::move(completionHandler), VODServiceConfig::current());
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::request(const std::string& keyId, const std::string& keySecret,
                                                          const std::string& token, const std::string& region,
                                                          const Value& params,
                                                          VODOpenApiCompletionHandler completionHandler,
                                                          const VODServiceConfig& config) {
    foundation::HttpRequest request;
    request.method = "GET";
    request.url = requestUrl(keyId, keySecret, token, region, params, randomUUID(), config);
    request.caFile = config.caFile;
    request.idleTimeoutSeconds = config.effectiveIdleTimeoutSeconds();
    request.connectTimeoutSeconds = config.effectiveIdleTimeoutSeconds();
    auto handler = std::move(completionHandler);
    return config.client()->send(std::move(request), [handler](foundation::HttpResult result) {
        if (handler) handleReply(std::move(result), handler);
    });
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::createUploadVideo(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
    const std::string& fileName, const std::string& region, const Value& optionalParams,
    VODOpenApiCompletionHandler completionHandler) {
    return createUploadVideo(keyId, keySecret, token, title, fileName, region, optionalParams,
                             std::move(completionHandler), VODServiceConfig::current());
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::createUploadVideo(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
    const std::string& fileName, const std::string& region, const Value& optionalParams,
    VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config) {
    vodLogDebug(kLogSource, "request vod video auth " +
                                (optionalParams.is_null() ? "(null)" : foundation::toJsonText(optionalParams)));
    Value params = Value::object();
    params["Action"] = "CreateUploadVideo";
    params["Title"] = title;
    params["FileName"] = fileName;
    mergeInto(params, optionalParams);
    return request(keyId, keySecret, token, region, params, std::move(completionHandler), config);
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::refreshUploadVideo(const std::string& keyId,
                                                                     const std::string& keySecret,
                                                                     const std::string& token,
                                                                     const std::string& videoId,
                                                                     const std::string& region,
                                                                     VODOpenApiCompletionHandler completionHandler) {
    return refreshUploadVideo(keyId, keySecret, token, videoId, region, std::move(completionHandler),
                              VODServiceConfig::current());
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::refreshUploadVideo(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& videoId,
    const std::string& region, VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config) {
    Value params = Value::object();
    params["Action"] = "RefreshUploadVideo";
    params["VideoId"] = videoId;
    return request(keyId, keySecret, token, region, params, std::move(completionHandler), config);
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::createUploadImage(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& imageType,
    const std::string& region, const Value& optionalParams, VODOpenApiCompletionHandler completionHandler) {
    return createUploadImage(keyId, keySecret, token, imageType, region, optionalParams, std::move(completionHandler),
                             VODServiceConfig::current());
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::createUploadImage(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& imageType,
    const std::string& region, const Value& optionalParams, VODOpenApiCompletionHandler completionHandler,
    const VODServiceConfig& config) {
    vodLogDebug(kLogSource, "request vod image auth " +
                                (optionalParams.is_null() ? "(null)" : foundation::toJsonText(optionalParams)));
    Value params = Value::object();
    params["Action"] = "CreateUploadImage";
    params["ImageType"] = imageType;
    mergeInto(params, optionalParams);
    return request(keyId, keySecret, token, region, params, std::move(completionHandler), config);
}

}  // namespace quorvane
