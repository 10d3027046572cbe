#pragma once
// Parsers of the two texts the video service issues per file: the upload auth (temporary
// credentials) and the upload address (where the file goes). Both are base64 of a JSON object.
// Pure functions over bytes: they never throw; a malformed text gives the log message to write.
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace quorvane {

struct UploadAuth {
    std::optional<std::string> accessKeyId;
    std::optional<std::string> accessKeySecret;
    std::optional<std::string> securityToken;
    std::optional<std::string> expiration;
    std::optional<std::string> expireUTCTime;
    std::optional<std::string> region;

    // "ExpireUTCTime" when non-empty, else "Expiration".
    std::optional<std::string> expireTime() const;
};

struct UploadAddress {
    std::optional<std::string> endpoint;
    std::optional<std::string> bucket;
    std::optional<std::string> fileName;
};

// Either the parsed record or the exact message a malformed text is logged with.
template <typename T>
struct ParseOutcome {
    std::optional<T> value;
    std::string error;
    explicit operator bool() const { return value.has_value(); }
};

// Messages as the engine has always written them (the first one has no full stop).
inline constexpr const char* kUploadAuthNotBase64 = "upload auth format is error";
inline constexpr const char* kUploadAuthNotJson = "upload auth format is error.";
inline constexpr const char* kUploadAddressError = "upload address format is error.";

ParseOutcome<UploadAuth> parseUploadAuthText(std::string_view text);
ParseOutcome<UploadAddress> parseUploadAddressText(std::string_view text);

}  // namespace quorvane
