#include "VODUpload/src/VODUploadAuthParser.h"

#include "foundation/crypto.h"
#include "foundation/value.h"

namespace quorvane {
namespace {

// The decoded JSON object, or nullopt. Only an object is a usable document.
std::optional<Value> decodeObject(std::string_view bytes) {
    auto doc = foundation::parseJson(bytes);
    if (!doc || !doc->is_object()) return std::nullopt;
    return doc;
}

}  // namespace

std::optional<std::string> UploadAuth::expireTime() const {
    if (expireUTCTime && !expireUTCTime->empty()) return expireUTCTime;
    return expiration;
}

ParseOutcome<UploadAuth> parseUploadAuthText(std::string_view text) {
    ParseOutcome<UploadAuth> out;
    auto bytes = foundation::base64Decode(text);
    if (!bytes) {
        out.error = kUploadAuthNotBase64;
        return out;
    }
    auto doc = decodeObject(*bytes);
    if (!doc) {
        out.error = kUploadAuthNotJson;
        return out;
    }
    UploadAuth auth;
    auth.accessKeyId = foundation::stringAt(*doc, "AccessKeyId");
    auth.accessKeySecret = foundation::stringAt(*doc, "AccessKeySecret");
    auth.securityToken = foundation::stringAt(*doc, "SecurityToken");
    auth.expiration = foundation::stringAt(*doc, "Expiration");
    auth.expireUTCTime = foundation::stringAt(*doc, "ExpireUTCTime");
    auth.region = foundation::stringAt(*doc, "Region");
    out.value = std::move(auth);
    return out;
}

ParseOutcome<UploadAddress> parseUploadAddressText(std::string_view text) {
    ParseOutcome<UploadAddress> out;
    auto bytes = foundation::base64Decode(text);
    auto doc = bytes ? decodeObject(*bytes) : std::nullopt;
    if (!doc) {
        out.error = kUploadAddressError;
        return out;
    }
    UploadAddress address;
    address.endpoint = foundation::stringAt(*doc, "Endpoint");
    address.bucket = foundation::stringAt(*doc, "Bucket");
    address.fileName = foundation::stringAt(*doc, "FileName");
    out.value = std::move(address);
    return out;
}

}  // namespace quorvane
