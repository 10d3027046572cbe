#pragma once
// Time, UUID, digest and URL-encoding helpers shared by the event sender and the progress-report API.
#include <optional>
#include <string>

#include "foundation/value.h"

namespace quorvane {

class AVCVHelper {
public:
    // Whole seconds since 1970 (UTC), as decimal text.
    static std::string timeStamp();
    // Now in GMT as "yyyy-MM-dd'T'HH:mm:sss'Z'" (three-digit seconds).
    static std::string timeStampFormatted();
    // A fresh random UUID: 36 characters, upper-case hex with hyphens.
    static std::string randomUUID();
    // base64(HMAC-SHA1(key, data)).
    static std::string hmacSha1(const std::string& key, const std::string& data);
    // MD5 of the UTF-8 bytes, 32 lower-case hex digits.
    static std::string md5WithString(const std::string& text);
    // "key=value" pairs, both percent-encoded, sorted case-insensitively on the pair text, joined by "&".
    static std::string urlEncodeStringFromDict(const Value& dict);
    // The event escaping: everything but ASCII letters, digits and "-._~" becomes %XX; absent gives "".
    static std::string urlEncode(const std::optional<std::string>& text);
    // The signing percent-encoding (a number is encoded as its decimal text).
    static std::string percentEncode(const Value& value);
};

}  // namespace quorvane
