#include "foundation/crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <cstdio>
#include <random>
#include <stdexcept>

namespace quorvane::foundation {

std::string md5Raw(std::string_view data) {
    Md5Stream s;
    s.update(data.data(), data.size());
    return s.finishRaw();
}

std::string md5Hex(std::string_view data) { return hexLower(md5Raw(data)); }

std::string hmacSha1Raw(std::string_view key, std::string_view message) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(message.data()), message.size(), out, &len);
    return std::string(reinterpret_cast<char*>(out), len);
}

std::string hmacSha1Base64(std::string_view key, std::string_view message) {
    return base64Encode(hmacSha1Raw(key, message));
}

std::string hmacSha256Raw(std::string_view key, std::string_view message) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(message.data()), message.size(), out, &len);
    return std::string(reinterpret_cast<char*>(out), len);
}

std::string sha256Hex(std::string_view data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_Digest(data.data(), data.size(), out, &len, EVP_sha256(), nullptr);
    return hexLower(std::string_view(reinterpret_cast<char*>(out), len));
}

std::string base64Encode(std::string_view bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3), '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    out.resize(static_cast<std::size_t>(n));
    return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    if (text.empty()) return std::string();
    // EVP_DecodeBlock tolerates some junk (leading blanks); check the alphabet ourselves so the
    // decode is strict, then let OpenSSL do the arithmetic.
    std::size_t pad = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool alpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
        if (c == '=') {
            if (i + 2 < text.size()) return std::nullopt;
            ++pad;
        } else if (!alpha || pad > 0) {
            return std::nullopt;
        }
    }
    std::string out(3 * text.size() / 4, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (n < 0) return std::nullopt;
    out.resize(static_cast<std::size_t>(n) - pad);
    return out;
}

static std::string hex(std::string_view bytes, const char* digits) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        out.push_back(digits[c >> 4]);
        out.push_back(digits[c & 0xF]);
    }
    return out;
}
std::string hexLower(std::string_view bytes) { return hex(bytes, "0123456789abcdef"); }
std::string hexUpper(std::string_view bytes) { return hex(bytes, "0123456789ABCDEF"); }

Md5Stream::Md5Stream() : ctx_(EVP_MD_CTX_new()) {
    if (!ctx_ || EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(ctx_), EVP_md5(), nullptr) != 1)
        throw std::runtime_error("MD5 unavailable");
}
Md5Stream::~Md5Stream() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(ctx_)); }
void Md5Stream::update(const void* data, std::size_t size) {
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(ctx_), data, size);
}
std::string Md5Stream::finishRaw() {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(ctx_), out, &len);
    EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(ctx_), EVP_md5(), nullptr);
    return std::string(reinterpret_cast<char*>(out), len);
}

std::string randomBytes(std::size_t count) {
    std::string out(count, '\0');
    if (count > 0 && RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), static_cast<int>(count)) != 1) {
        std::random_device device;
        for (auto& c : out) c = static_cast<char>(device());
    }
    return out;
}

std::string randomUuid() {
    std::string raw = randomBytes(16);
    auto* b = reinterpret_cast<unsigned char*>(raw.data());
    b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);  // version 4
    b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);  // RFC 4122 variant
    char out[37];
    std::snprintf(out, sizeof out, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                  b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return out;
}

}  // namespace quorvane::foundation
