#pragma once
// How long a presigned URL lasts, as people write it: "90" or "90s", "15m", "1h", "7d".
#include <chrono>
#include <optional>
#include <string>

namespace quorvane::app {

inline constexpr std::chrono::seconds kLongestPresign{7 * 24 * 3600};  // the service's limit

// nullopt when it is not a duration of 1 s to 7 days.
std::optional<std::chrono::seconds> parsePresignExpiry(const std::string& text);

}  // namespace quorvane::app
