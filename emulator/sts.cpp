#include "emulator/sts.h"

#include "emulator/util.h"
#include "foundation/crypto.h"

namespace quorvane::emulator {

StsRegistry::StsRegistry(std::string rootKeyId, std::string rootSecret)
    : rootKeyId_(std::move(rootKeyId)), rootSecret_(std::move(rootSecret)) {}

StsCredentials StsRegistry::issue(foundation::SystemTime now, std::chrono::seconds ttl) {
    Entry e;
    e.creds.AccessKeyId = "STS.NU" + randomAlnum(22);
    e.creds.AccessKeySecret = randomAlnum(44);
    // Real tokens are long opaque base64 texts starting with "CAIS"; clients must not assume a length.
    e.creds.SecurityToken = "CAIS" + foundation::base64Encode(randomAlnum(180));
    e.expiresAt = now + ttl;
    e.creds.Expiration = foundation::iso8601Utc(e.expiresAt);
    std::lock_guard lock(mutex_);
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
