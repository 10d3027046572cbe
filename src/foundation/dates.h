#pragma once
// The date formats the system uses, all computed from an explicit instant so tests can fix "now".
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::foundation {

using SystemTime = std::chrono::system_clock::time_point;

// "Thu, 17 Nov 2005 18:49:58 GMT" (HTTP and OSS Date header).
std::string rfc1123Gmt(SystemTime t);
// Parses the RFC 1123 form back; nullopt when malformed.
std::optional<SystemTime> parseRfc1123(const std::string& text);
// "2016-02-23T12:46:24Z" (UTC, whole seconds).
std::string iso8601Utc(SystemTime t);
// "2016-02-23T12:46:24.000Z" (UTC, milliseconds), as object-storage listings print it.
std::string iso8601UtcMillis(SystemTime t);
// Parses "YYYY-MM-DDTHH:MM:SS[.fff]Z"; nullopt when malformed.
std::optional<SystemTime> parseIso8601Utc(const std::string& text);
// strftime of the instant in UTC or in the local time zone.
std::string formatTime(SystemTime t, const char* strftimeFormat, bool utc);
// Offset of the local time zone from GMT at the instant, in seconds (UTC+8 gives 28800).
long localGmtOffsetSeconds(SystemTime t);

}  // namespace quorvane::foundation
