#include "emulator/sts.h"

#include <cctype>

#include "emulator/util.h"
#include "foundation/crypto.h"

namespace quorvane::emulator {

StsRegistry::StsRegistry(std::string rootKeyId, std::string rootSecret)
    : rootKeyId_(std::move(rootKeyId)), rootSecret_(std::move(rootSecret)), signingKey_(randomAlnum(43)) {}

void StsRegistry::setSigningKey(std::string key) {
    std::lock_guard lock(mutex_);
    signingKey_ = std::move(key);
}

std::string StsRegistry::secretOf(const std::string& keyId) const {
    std::string out;
    for (char round = 'a'; out.size() < 44; ++round)
        for (char c : foundation::base64Encode(foundation::hmacSha256Raw(signingKey_, std::string("secret-") + round + keyId)))
            if (std::isalnum(static_cast<unsigned char>(c)) && out.size() < 44) out += c;
    return out;
}

std::string StsRegistry::macOf(const std::string& keyId, long long expires) const {
    return foundation::hexLower(foundation::hmacSha256Raw(signingKey_, "token|" + keyId + "|" + std::to_string(expires)));
}

std::optional<long long> StsRegistry::tokenExpiry(const std::string& keyId, const std::string& token) const {
    if (!startsWith(token, "CAIS")) return std::nullopt;
    auto text = foundation::base64Decode(token.substr(4));
    if (!text) return std::nullopt;
    // "<key id>|<expiry, unix seconds>|<mac>|<padding>"
    auto a = text->find('|'), b = a == std::string::npos ? a : text->find('|', a + 1),
         c = b == std::string::npos ? b : text->find('|', b + 1);
    if (c == std::string::npos || text->substr(0, a) != keyId) return std::nullopt;
    long long expires = 0;
    try {
        expires = std::stoll(text->substr(a + 1, b - a - 1));
    } catch (...) {
        return std::nullopt;
    }
    if (text->substr(b + 1, c - b - 1) != macOf(keyId, expires)) return std::nullopt;
    return expires;
}

StsCredentials StsRegistry::issue(foundation::SystemTime now, std::chrono::seconds ttl) {
    Entry e;
    e.expiresAt = now + ttl;
    const auto expires = std::chrono::duration_cast<std::chrono::seconds>(e.expiresAt.time_since_epoch()).count();
    e.creds.AccessKeyId = "STS.NU" + randomAlnum(22);
    e.creds.Expiration = foundation::iso8601Utc(e.expiresAt);
    std::lock_guard lock(mutex_);
    e.creds.AccessKeySecret = secretOf(e.creds.AccessKeyId);
    // Real tokens are long opaque base64 texts starting with "CAIS"; clients must not assume a length.
    e.creds.SecurityToken = "CAIS" + foundation::base64Encode(e.creds.AccessKeyId + "|" + std::to_string(expires) + "|" +
                                                              macOf(e.creds.AccessKeyId, expires) + "|" + randomAlnum(64));
    entries_.push_back(e);
    return e.creds;
}

void StsRegistry::expire(const std::string& token) {
    std::lock_guard lock(mutex_);
    for (auto& e : entries_)
        if (e.creds.SecurityToken == token) e.revoked = true;
}

void StsRegistry::expireAll() {
    std::lock_guard lock(mutex_);
    for (auto& e : entries_) e.revoked = true;
}

KeyCheck StsRegistry::check(const std::string& keyId, const std::optional<std::string>& token,
                            foundation::SystemTime now) const {
    KeyCheck out;
    if (keyId == rootKeyId_) {
        out.known = true;
        out.secret = rootSecret_;
        return out;  // a long-term key ignores any token sent along
    }
    std::lock_guard lock(mutex_);
    for (const auto& e : entries_) {
        if (e.creds.AccessKeyId != keyId) continue;
        out.known = out.sts = true;
        out.secret = e.creds.AccessKeySecret;
        if (!token || token->empty())
            out.token = TokenState::Missing;
        else if (*token != e.creds.SecurityToken)
            out.token = TokenState::Invalid;
        else if (e.revoked || now >= e.expiresAt)
            out.token = TokenState::Expired;
        return out;
    }
    // Issued by an earlier run with the same signing key: the token vouches for the key id.
    if (!token || token->empty()) return out;
    auto expires = tokenExpiry(keyId, *token);
    if (!expires) return out;
    out.known = out.sts = true;
    out.secret = secretOf(keyId);
    if (std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count() >= *expires)
        out.token = TokenState::Expired;
    return out;
}

std::vector<StsCredentials> StsRegistry::all() const {
    std::lock_guard lock(mutex_);
    std::vector<StsCredentials> out;
    for (const auto& e : entries_) out.push_back(e.creds);
    return out;
}

void StsRegistry::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

}  // namespace quorvane::emulator
