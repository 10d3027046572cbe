#pragma once
// The key pairs the emulator accepts: the root pair, and STS temporary credentials it issued. Issued
// credentials are derived from a signing key: the secret from the key id, and the token carries the key
// id and expiry under a MAC. So a restart with the same signing key (kept in the storage directory)
// still accepts credentials issued before it, without a list of them.
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"
#include "foundation/dates.h"

namespace quorvane::emulator {

enum class TokenState { Valid, Expired, Invalid, Missing };

struct KeyCheck {
    bool known = false;    // the key id exists (root or issued)
    bool sts = false;      // a temporary key, which needs its token
    std::string secret;
    TokenState token = TokenState::Valid;
};

class StsRegistry {
public:
    StsRegistry(std::string rootKeyId, std::string rootSecret);
    void setSigningKey(std::string key);  // random until set
    StsCredentials issue(foundation::SystemTime now, std::chrono::seconds ttl);
    void expire(const std::string& token);
    void expireAll();
    // Looks a key id up and judges the token sent with it (nullopt = none sent).
    KeyCheck check(const std::string& keyId, const std::optional<std::string>& token,
                   foundation::SystemTime now) const;
    std::vector<StsCredentials> all() const;
    void clear();

private:
    struct Entry {
        StsCredentials creds;
        foundation::SystemTime expiresAt;
        bool revoked = false;
    };
    std::string rootKeyId_;
    std::string rootSecret_;
    mutable std::mutex mutex_;
    std::string signingKey_;
    std::string secretOf(const std::string& keyId) const;  // with mutex_ held
    std::string macOf(const std::string& keyId, long long expires) const;
    // The expiry a token of ours gives this key id; nullopt when it is not such a token.
    std::optional<long long> tokenExpiry(const std::string& keyId, const std::string& token) const;
    std::vector<Entry> entries_;
};

}  // namespace quorvane::emulator
