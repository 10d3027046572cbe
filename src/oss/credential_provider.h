#pragma once
// Credential providers: what signs each object-storage request.
//  - OSSPlainTextAKSKPairCredentialProvider: a fixed access key pair;
//  - OSSFederationCredentialProvider: temporary (STS) credentials; its getter runs before every
//    request, so a renewed token reaches a running client at its next request;
//  - OSSCustomSignerCredentialProvider: a block signs the string to sign (the secret never
//    reaches this library).
// Providers are shared between threads: the client calls them from its worker threads.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/error.h"

namespace quorvane::oss {

// Temporary credentials as a token service hands them out.
struct OSSFederationToken {
    std::string tAccessKey;
    std::string tSecretKey;
    std::string tToken;
    // Expiry as the service wrote it ("2015-11-03T08:51:05Z"); informational.
    std::optional<std::string> expirationTimeInGMTFormat;
    // Expiry in milliseconds since 1970; 0 when unknown. Informational.
    std::int64_t expirationTimeInMilliSecond = 0;
};

// What one request is signed with, fetched once per request.
struct OSSCredentials {
    std::string accessKeyId;
    std::string accessKeySecret;
    std::optional<std::string> securityToken;  // sent as "x-oss-security-token" when present
};

class OSSCredentialProvider {
public:
    virtual ~OSSCredentialProvider() = default;
    // The credentials for the next request; nullopt with *error set when there are none.
    virtual std::optional<OSSCredentials> currentCredentials(Error* error) = 0;
    // The "Authorization" header value for the string to sign: "OSS <id>:<signature>".
    // nullopt with *error set when signing fails.
    virtual std::optional<std::string> authorization(const std::string& stringToSign, const OSSCredentials& credentials,
                                                     Error* error);
    // Whether currentCredentials() hands out the secret, which V4 signatures need: a provider that
    // signs through a block of its own signs V1 strings only.
    virtual bool providesSecret() const { return true; }
};

class OSSPlainTextAKSKPairCredentialProvider : public OSSCredentialProvider {
public:
    OSSPlainTextAKSKPairCredentialProvider(std::string accessKey, std::string secretKey);
    std::optional<OSSCredentials> currentCredentials(Error* error) override;
    const std::string& accessKey() const { return accessKey_; }
private:
    std::string accessKey_;
    std::string secretKey_;
};

class OSSFederationCredentialProvider : public OSSCredentialProvider {
public:
    // The getter returns the current token, or nullptr when it has none (the request then fails
    // with a sign error).
    using TokenGetter = std::function<std::shared_ptr<OSSFederationToken>()>;
    explicit OSSFederationCredentialProvider(TokenGetter federationTokenGetter);
    std::optional<OSSCredentials> currentCredentials(Error* error) override;
    // Calls the getter; nullptr when it gives no usable token.
    std::shared_ptr<OSSFederationToken> getToken(Error* error);
private:
    TokenGetter getter_;
};

class OSSCustomSignerCredentialProvider : public OSSCredentialProvider {
public:
    // Receives the string to sign; returns the "Authorization" header value (for instance
    // "OSS <id>:<signature>"), or nullopt with *error set. A bare signature without the "OSS "
    // prefix is sent with the prefix added.
    using SignContentBlock = std::function<std::optional<std::string>(const std::string& contentToSign, Error* error)>;
    explicit OSSCustomSignerCredentialProvider(SignContentBlock signContent);
    std::optional<OSSCredentials> currentCredentials(Error* error) override;
    std::optional<std::string> authorization(const std::string& stringToSign, const OSSCredentials& credentials,
                                             Error* error) override;
    bool providesSecret() const override { return false; }
    // Signs through the block (initWithImplementedSigner's block).
    std::optional<std::string> signContent(const std::string& content, Error* error) const;
private:
    SignContentBlock signContent_;
};

class OSSUtil {
public:
    // base64(HMAC-SHA1(key = secret, message = data)); nullopt when the secret is empty.
    static std::optional<std::string> calBase64Sha1WithData(const std::string& data, const std::string& withSecret);
};

}  // namespace quorvane::oss
