#include "presign_expiry.h"

#include <cctype>

namespace quorvane::app {

std::optional<std::chrono::seconds> parsePresignExpiry(const std::string& text) {
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits]))) ++digits;
    if (digits == 0 || digits > 7) return std::nullopt;
    const long long count = std::stoll(text.substr(0, digits));
    const std::string unit = text.substr(digits);
    long long scale = 0;
    if (unit.empty() || unit == "s") scale = 1;
    else if (unit == "m") scale = 60;
    else if (unit == "h") scale = 3600;
    else if (unit == "d") scale = 86400;
    if (scale == 0) return std::nullopt;
    std::chrono::seconds seconds(count * scale);
    if (seconds.count() < 1 || seconds > kLongestPresign) return std::nullopt;
    return seconds;
}

}  // namespace quorvane::app
