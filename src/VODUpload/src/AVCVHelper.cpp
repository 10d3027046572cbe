#include "VODUpload/src/AVCVHelper.h"

#include <chrono>

#include "VODUpload/src/VODDateFormat.h"
#include "VODUpload/src/VODOpenApi.h"
#include "foundation/crypto.h"

namespace quorvane {

// The digests, the UUID and the signing encodings are the OpenAPI client's own: the service checks
// both kinds of request with the same rules.

std::string AVCVHelper::timeStamp() {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    return std::to_string(static_cast<long long>(seconds.count()));
}

std::string AVCVHelper::timeStampFormatted() { return vodDateString(std::chrono::system_clock::now(), true); }

std::string AVCVHelper::randomUUID() { return VODOpenApi::randomUUID(); }

std::string AVCVHelper::hmacSha1(const std::string& key, const std::string& data) {
    return VODOpenApi::hmacSha1(key, data);
}

std::string AVCVHelper::md5WithString(const std::string& text) { return foundation::md5Hex(text); }

std::string AVCVHelper::urlEncodeStringFromDict(const Value& dict) { return VODOpenApi::getParamsString(dict); }

// The event escaping keeps exactly the unreserved set too, so it shares the encoder.
std::string AVCVHelper::urlEncode(const std::optional<std::string>& text) {
    return text ? VODOpenApi::percentEncode(Value(*text)) : std::string();
}

std::string AVCVHelper::percentEncode(const Value& value) { return VODOpenApi::percentEncode(value); }

}  // namespace quorvane
