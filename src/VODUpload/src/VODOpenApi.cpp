#include "VODUpload/src/VODOpenApi.h"

#include <algorithm>
#include <chrono>
#include <locale>
#include <vector>

#include "VODUpload/src/VODAcs3Signer.h"
#include "VODUpload/src/VODLog.h"
#include "foundation/crypto.h"
#include "foundation/dates.h"
#include "foundation/http_client.h"

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

// "host[:port]" of a base URL, as the Host header carries it.
std::string hostOf(const std::string& url) {
    auto start = url.find("://");
    start = start == std::string::npos ? 0 : start + 3;
    auto end = url.find_first_of("/?#", start);
    std::string authority = url.substr(start, end == std::string::npos ? std::string::npos : end - start);
    auto at = authority.rfind('@');
    return at == std::string::npos ? authority : authority.substr(at + 1);
}

// The ACS3 form: the version, key, nonce and token travel as signed headers, the action's own
// parameters stay in the query, as RPC-style actions take them.
void signAcs3(foundation::HttpRequest& request, const std::string& keyId, const std::string& keySecret,
              const std::string& token, const std::string& baseUrl, const Value& params, const std::string& nonce,
              const std::string& date) {
    VODAcs3Request acs3;
    acs3.host = hostOf(baseUrl);
    acs3.version = "2017-03-21";
    acs3.date = date;
    acs3.nonce = nonce;
    acs3.securityToken = token;
    for (auto it = params.begin(); it != params.end(); ++it) {
        if (it.key() == "Action")
            acs3.action = valueText(it.value());
        else
            acs3.query.emplace_back(it.key(), valueText(it.value()));
    }
    auto signedAcs3 = VODAcs3Signer::sign(acs3, keyId, keySecret);
    request.url = baseUrl + (signedAcs3.canonicalQuery.empty() ? "" : "?" + signedAcs3.canonicalQuery);
    request.headers = std::move(signedAcs3.headers);
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

// The signing encoding keeps exactly RFC 3986's unreserved characters, upper-case hex: libcurl's escape.
std::string VODOpenApi::percentEncode(const Value& value) { return foundation::urlEncode(valueText(value)); }

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

std::string VODOpenApi::randomUUID() { return foundation::randomUuid(); }

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
    return requestUrl(keyId, keySecret, token, region, params, nonce, VODServiceConfig{});
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

foundation::HttpRequest VODOpenApi::signedRequest(const std::string& keyId, const std::string& keySecret,
                                                  const std::string& token, const std::string& region,
                                                  const Value& params, const std::string& nonce,
                                                  const std::string& date, const VODServiceConfig& config) {
    foundation::HttpRequest request;
    request.method = "GET";
    if (config.signatureVersion == VODSignatureVersion::Acs3HmacSha256)
        signAcs3(request, keyId, keySecret, token, config.urlForRegion(region), params, nonce, date);
    else
        request.url = requestUrl(keyId, keySecret, token, region, params, nonce, config);
    return request;
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::request(const std::string& keyId, const std::string& keySecret,
                                                          const std::string& token, const std::string& region,
                                                          const Value& params,
                                                          VODOpenApiCompletionHandler completionHandler) {
    return request(keyId, keySecret, token, region, params, std::move(completionHandler), VODServiceConfig{});
}

std::shared_ptr<foundation::HttpTask> VODOpenApi::request(const std::string& keyId, const std::string& keySecret,
                                                          const std::string& token, const std::string& region,
                                                          const Value& params,
                                                          VODOpenApiCompletionHandler completionHandler,
                                                          const VODServiceConfig& config) {
    auto request = signedRequest(keyId, keySecret, token, region, params, randomUUID(), timeStamp(), config);
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
                             std::move(completionHandler), VODServiceConfig{});
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
                              VODServiceConfig{});
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
                             VODServiceConfig{});
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
