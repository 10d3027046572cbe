#include "oss/credential_provider.h"

#include "foundation/crypto.h"
#include "oss/oss_error.h"

namespace quorvane::oss {
namespace {
void setError(Error* error, Error value) {
    if (error) *error = std::move(value);
}
}  // namespace

std::optional<std::string> OSSCredentialProvider::authorization(const std::string& stringToSign,
                                                                const OSSCredentials& credentials, Error* error) {
    auto signature = OSSUtil::calBase64Sha1WithData(stringToSign, credentials.accessKeySecret);
    if (!signature) {
        setError(error, makeClientError(OSSClientErrorCodeSignFailed, "Can't sign the request: no access key secret"));
        return std::nullopt;
    }
    return "OSS " + credentials.accessKeyId + ":" + *signature;
}

OSSPlainTextAKSKPairCredentialProvider::OSSPlainTextAKSKPairCredentialProvider(std::string accessKey,
                                                                               std::string secretKey)
    : accessKey_(std::move(accessKey)), secretKey_(std::move(secretKey)) {}

std::optional<OSSCredentials> OSSPlainTextAKSKPairCredentialProvider::currentCredentials(Error* error) {
    if (accessKey_.empty() || secretKey_.empty()) {
        setError(error, makeClientError(OSSClientErrorCodeSignFailed, "The access key pair is empty"));
        return std::nullopt;
    }
    return OSSCredentials{accessKey_, secretKey_, std::nullopt};
}

OSSFederationCredentialProvider::OSSFederationCredentialProvider(TokenGetter federationTokenGetter)
    : getter_(std::move(federationTokenGetter)) {}

std::shared_ptr<OSSFederationToken> OSSFederationCredentialProvider::getToken(Error* error) {
    auto token = getter_ ? getter_() : nullptr;
    if (!token || token->tAccessKey.empty() || token->tSecretKey.empty()) {
        setError(error, makeClientError(OSSClientErrorCodeSignFailed, "Can't get a federation token"));
        return nullptr;
    }
    return token;
}

std::optional<OSSCredentials> OSSFederationCredentialProvider::currentCredentials(Error* error) {
    auto token = getToken(error);
    if (!token) return std::nullopt;
    OSSCredentials credentials{token->tAccessKey, token->tSecretKey, std::nullopt};
    if (!token->tToken.empty()) credentials.securityToken = token->tToken;
    return credentials;
}

OSSCustomSignerCredentialProvider::OSSCustomSignerCredentialProvider(SignContentBlock signContent)
    : signContent_(std::move(signContent)) {}

std::optional<OSSCredentials> OSSCustomSignerCredentialProvider::currentCredentials(Error*) {
    return OSSCredentials{};
}

std::optional<std::string> OSSCustomSignerCredentialProvider::signContent(const std::string& content,
                                                                          Error* error) const {
    if (!signContent_) {
        setError(error, makeClientError(OSSClientErrorCodeSignFailed, "No signer block"));
        return std::nullopt;
    }
    Error blockError;
    auto value = signContent_(content, &blockError);
    if (!value || value->empty()) {
        // The block's own error goes to the caller as it is.
        setError(error, blockError.domain.empty()
                            ? makeClientError(OSSClientErrorCodeSignFailed, "The signer returned no signature")
                            : blockError);
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> OSSCustomSignerCredentialProvider::authorization(const std::string& stringToSign,
                                                                            const OSSCredentials&, Error* error) {
    auto value = signContent(stringToSign, error);
    if (!value) return std::nullopt;
    if (value->rfind("OSS ", 0) != 0) return "OSS " + *value;
    return value;
}

std::optional<std::string> OSSUtil::calBase64Sha1WithData(const std::string& data, const std::string& withSecret) {
    if (withSecret.empty()) return std::nullopt;
    return foundation::hmacSha1Base64(withSecret, data);
}

}  // namespace quorvane::oss
