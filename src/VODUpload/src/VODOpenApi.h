#pragma once
// Signed requests to the VOD OpenAPI (CreateUploadVideo, RefreshUploadVideo, CreateUploadImage)
// with the caller's temporary credentials. Stateless; any thread may call. The completion handler
// runs exactly once, on the HTTP client's worker thread. Each operation comes twice: with the
// system's own services, and with a client's own VODServiceConfig as its last parameter.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VODUpload/src/VODServiceConfig.h"
#include "foundation/error.h"
#include "foundation/http_client.h"
#include "foundation/value.h"

namespace quorvane {

// Service error codes ("Code" of a reply) that callers branch on.
extern const char* const VODOpenApiTokenExpired;   // "InvalidSecurityToken.Expired"
extern const char* const VODOpenApiVideoNotFound;  // "InvalidVideo.NotFound"

// Error domains of a reply (besides the transport's own, foundation::kHttpErrorDomain).
inline constexpr const char* kVODOpenApiErrorDomain = "vod";            // code = HTTP status, userInfo = reply
inline constexpr const char* kVODEmptyDataErrorDomain = "Empty Data";   // code = kVODEmptyDataErrorCode
inline constexpr long long kVODEmptyDataErrorCode = -10000;
inline constexpr const char* kVODJsonErrorDomain = "JSONSerialization"; // code = the parser's error id

// Parses a reply body (any top-level JSON fragment); nullopt with `error` set to a
// kVODJsonErrorDomain error when it is not JSON.
std::optional<Value> parseVodReply(const std::string& body, std::optional<Error>& error);

// (HTTP response or absent, parsed reply or absent, error or absent).
using VODOpenApiCompletionHandler = std::function<void(std::optional<foundation::HttpResponse> response,
                                                       std::optional<Value> reply, std::optional<Error> error)>;

class VODOpenApi {
public:
    // Parameter maps are JSON objects whose values are texts or numbers. A null optional map is
    // absent: only the action's own parameters are sent.
    static std::shared_ptr<foundation::HttpTask> createUploadVideo(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
        const std::string& fileName, const std::string& region, const Value& optionalParams,
        VODOpenApiCompletionHandler completionHandler);
    static std::shared_ptr<foundation::HttpTask> createUploadVideo(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
        const std::string& fileName, const std::string& region, const Value& optionalParams,
        VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config);

    static std::shared_ptr<foundation::HttpTask> refreshUploadVideo(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& videoId,
        const std::string& region, VODOpenApiCompletionHandler completionHandler);
    static std::shared_ptr<foundation::HttpTask> refreshUploadVideo(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& videoId,
        const std::string& region, VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config);

    static std::shared_ptr<foundation::HttpTask> createUploadImage(
        const std::string& keyId, const std::string& keySecret, const std::string& token,
        const std::string& imageType, const std::string& region, const Value& optionalParams,
        VODOpenApiCompletionHandler completionHandler);
    static std::shared_ptr<foundation::HttpTask> createUploadImage(
        const std::string& keyId, const std::string& keySecret, const std::string& token,
        const std::string& imageType, const std::string& region, const Value& optionalParams,
        VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config);

    // Adds the common parameters to `params`, signs and sends the GET.
    static std::shared_ptr<foundation::HttpTask> request(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& region,
        const Value& params, VODOpenApiCompletionHandler completionHandler);
    static std::shared_ptr<foundation::HttpTask> request(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& region,
        const Value& params, VODOpenApiCompletionHandler completionHandler, const VODServiceConfig& config);

    // Canonical query: "key=value" pairs, both percent-encoded, sorted locale-aware and
    // case-insensitively on the whole pair text, joined with "&".
    static std::string getParamsString(const Value& params);
    // Keeps ASCII letters, digits and "-._~"; every other UTF-8 byte becomes %XX (upper-case hex).
    // A number is encoded as its decimal text.
    static std::string percentEncode(const Value& value);
    // Now as "2017-03-21T08:00:00Z" (GMT).
    static std::string timeStamp();
    // A fresh random UUID, upper-case hex with hyphens (36 characters).
    static std::string randomUUID();
    // base64(HMAC-SHA1(key, data)); each text is taken up to its first zero byte.
    static std::string hmacSha1(const std::string& key, const std::string& data);

    // The pieces of the signature, exposed so the signing can be checked with a fixed nonce.
    // "GET&%2F&" + percentEncode(canonicalQuery).
    static std::string stringToSign(const std::string& canonicalQuery);
    // hmacSha1(keySecret + "&", stringToSign(canonicalQuery)).
    static std::string signature(const std::string& keySecret, const std::string& canonicalQuery);
    // The full signed URL for the common parameters (with `nonce`) merged with `params`.
    static std::string requestUrl(const std::string& keyId, const std::string& keySecret, const std::string& token,
                                  const std::string& region, const Value& params, const std::string& nonce);
    static std::string requestUrl(const std::string& keyId, const std::string& keySecret, const std::string& token,
                                  const std::string& region, const Value& params, const std::string& nonce,
                                  const VODServiceConfig& config);
    // The GET that request() sends, with `nonce` and, for ACS3, dated `date` ("2017-03-21T08:00:00Z"):
    // a signed URL (HMAC-SHA1), or the URL with the action's parameters and signed headers (ACS3).
    static foundation::HttpRequest signedRequest(const std::string& keyId, const std::string& keySecret,
                                                 const std::string& token, const std::string& region,
                                                 const Value& params, const std::string& nonce,
                                                 const std::string& date, const VODServiceConfig& config);
};

}  // namespace quorvane
