#pragma once
// Digests and encodings, on OpenSSL's EVP interface.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane::foundation {

// Raw 16-byte MD5 digest.
std::string md5Raw(std::string_view data);
// MD5 as lower-case hex ("%02x" per byte).
std::string md5Hex(std::string_view data);
// Raw 20-byte HMAC-SHA1.
std::string hmacSha1Raw(std::string_view key, std::string_view message);
// base64(HMAC-SHA1(key, message)).
std::string hmacSha1Base64(std::string_view key, std::string_view message);
// Raw 32-byte HMAC-SHA256.
std::string hmacSha256Raw(std::string_view key, std::string_view message);
// SHA-256 as lower-case hex.
std::string sha256Hex(std::string_view data);

// Standard base64 with padding, no line breaks.
std::string base64Encode(std::string_view bytes);
// Strict decode: nullopt for characters outside the alphabet, bad padding or a bad length.
std::optional<std::string> base64Decode(std::string_view text);

// `count` bytes from OpenSSL's generator (std::random_device should OpenSSL's pool ever fail).
std::string randomBytes(std::size_t count);
// A random (version 4) UUID: 36 characters, upper-case hex with hyphens.
std::string randomUuid();

std::string hexLower(std::string_view bytes);
std::string hexUpper(std::string_view bytes);

// Incremental MD5 for data that is streamed (never held whole in memory).
class Md5Stream {
public:
    Md5Stream();
    ~Md5Stream();
    Md5Stream(const Md5Stream&) = delete;
    Md5Stream& operator=(const Md5Stream&) = delete;
    void update(const void* data, std::size_t size);
    std::string finishRaw();  // 16 raw bytes; the stream is then reset
private:
    void* ctx_;
};

}  // namespace quorvane::foundation
