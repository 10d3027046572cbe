// Credentials: set-up, the upload auth and address texts, the credential provider and the
// recovery after an expiry.
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadAuthParser.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

bool allNonEmpty(std::initializer_list<const std::string*> values) {
    for (const auto* v : values)
        if (v->empty()) return false;
    return true;
}

bool nonEmpty(const std::optional<std::string>& v) { return v && !v->empty(); }

}  // namespace

void VODUploadEngine::setCredentials(std::optional<std::string> keyId, std::optional<std::string> secret,
                                     std::optional<std::string> token, std::optional<std::string> expire) {
    std::lock_guard lock(*credentialsMutex_);
    ossConfig_->accessKeyId = std::move(keyId);
    ossConfig_->accessKeySecret = std::move(secret);
    ossConfig_->secretToken = std::move(token);
    ossConfig_->expireTime = std::move(expire);
}

bool VODUploadEngine::init(std::shared_ptr<VODUploadListener> listener) {
    return serially([&] {
        callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadEngine::init(const std::string& accessKeyId, const std::string& accessKeySecret,
                           std::shared_ptr<VODUploadListener> listener) {
    return serially([&] {
        if (!allNonEmpty({&accessKeyId, &accessKeySecret})) return false;
        setCredentials(accessKeyId, accessKeySecret, std::nullopt, std::nullopt);
        callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadEngine::init(const std::string& accessKeyId, const std::string& accessKeySecret,
                           const std::string& secretToken, const std::string& expireTime,
                           std::shared_ptr<VODUploadListener> listener) {
    return serially([&] {
        if (!allNonEmpty({&accessKeyId, &accessKeySecret, &secretToken, &expireTime})) return false;
        setCredentials(accessKeyId, accessKeySecret, secretToken, expireTime);
        callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadEngine::setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                               std::shared_ptr<VODUploadListener> listener) {
    return init(accessKeyId, accessKeySecret, std::move(listener));
}

bool VODUploadEngine::setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                               const std::string& secretToken, const std::string& expireTime,
                               std::shared_ptr<VODUploadListener> listener) {
    return init(accessKeyId, accessKeySecret, secretToken, expireTime, std::move(listener));
}

bool VODUploadEngine::setUploadAuthAndAddress(const std::shared_ptr<UploadFileInfo>& uploadInfo,
                                              const std::string& uploadAuth, const std::string& uploadAddress) {
    return serially([&] {
        if (!uploadInfo || uploadAuth.empty()) return false;
        if (!parseUploadAuth(uploadAuth, *ossConfig_)) return false;
        return parseUploadAddress(uploadAddress, uploadInfo);
    });
}

bool VODUploadEngine::parseUploadAuth(const std::string& uploadAuth, OSSConfig& config) {
    return serially([&] {
        auto parsed = parseUploadAuthText(uploadAuth);
        if (!parsed) {
            vodLogDebug(kLogSource, parsed.error);
            return false;
        }
        const UploadAuth& auth = *parsed.value;
        std::lock_guard lock(*credentialsMutex_);
        config.accessKeyId = auth.accessKeyId;
        config.accessKeySecret = auth.accessKeySecret;
        config.secretToken = auth.securityToken;
        config.expireTime = auth.expireTime();
        if (nonEmpty(auth.region)) updateOptions([&](VODUploadOptions& o) { o.region = *auth.region; });
        return true;
    });
}

bool VODUploadEngine::parseUploadAddress(const std::string& uploadAddress,
                                         const std::shared_ptr<UploadFileInfo>& uploadInfo) {
    return serially([&] {
        auto parsed = parseUploadAddressText(uploadAddress);
        if (!parsed) {
            vodLogDebug(kLogSource, parsed.error);
            return false;
        }
        const UploadAddress& address = *parsed.value;
        // The resume cache speaks for the current file: an interrupted attempt that already got a video
        // id continues into the object it began.
        auto& cache = resumeCache();
        std::string curPath = cur_ ? cur_->filePath : std::string();
        auto entry = cache.getObjectWithPath(curPath);
        if (entry) {
            if (entry->object.empty() || entry->videoId.empty()) entry->object = address.fileName.value_or("");
            cache.saveObject(entry, curPath);
        }
        if (uploadInfo)
            uploadInfo->setAddress({address.endpoint, address.bucket,
                                    entry && !entry->object.empty() ? std::optional(entry->object) : address.fileName});
        curUploadAddress_ = uploadAddress;
        return true;
    });
}

OSSConfig VODUploadEngine::credentialsOf(const std::shared_ptr<OSSConfig>& config) const {
    std::lock_guard lock(*credentialsMutex_);
    return config ? *config : OSSConfig{};
}

std::shared_ptr<oss::OSSCredentialProvider> VODUploadEngine::getCredentialProvider() {
    std::shared_ptr<OSSConfig> config;
    OSSConfig now;
    {
        std::lock_guard lock(*credentialsMutex_);
        config = openApiConfig_ ? openApiConfig_ : ossConfig_;
        if (!config) return nullptr;
        now = *config;
    }
    if (!nonEmpty(now.accessKeyId) || !nonEmpty(now.accessKeySecret)) return nullptr;
    if (nonEmpty(now.secretToken)) {
        // Read at every token fetch, so credentials stored by resumeWithToken reach a running client;
        // under the lock, so a fetch never sees half of a new set.
        std::weak_ptr<OSSConfig> weakConfig = config;
        return std::make_shared<oss::OSSFederationCredentialProvider>(
            [weakConfig, mutex = credentialsMutex_]() -> std::shared_ptr<oss::OSSFederationToken> {
                auto record = weakConfig.lock();
                if (!record) return nullptr;
                auto token = std::make_shared<oss::OSSFederationToken>();
                std::lock_guard lock(*mutex);
                token->tAccessKey = record->accessKeyId.value_or("");
                token->tSecretKey = record->accessKeySecret.value_or("");
                token->tToken = record->secretToken.value_or("");
                token->expirationTimeInGMTFormat = record->expireTime;
                return token;
            });
    }
    return std::make_shared<oss::OSSPlainTextAKSKPairCredentialProvider>(*now.accessKeyId, *now.accessKeySecret);
}

bool VODUploadEngine::resumeWithToken(const std::string& accessKeyId, const std::string& accessKeySecret,
                                      const std::string& secretToken, const std::string& expireTime) {
    return serially([&] {
        vodLogDebug(kLogSource, "resume upload with new token.");
        if (state_ != VODClientState::Paused) return false;
        if (!allNonEmpty({&accessKeyId, &accessKeySecret, &secretToken, &expireTime})) return false;
        setCredentials(accessKeyId, accessKeySecret, secretToken, expireTime);
        transitionTo(VODClientState::Started);
        continueAfterNewCredentials();
        return true;
    });
}

bool VODUploadEngine::resumeWithAuth(const std::string& uploadAuth) {
    if (uploadAuth.empty()) return false;
    auto parsed = parseUploadAuthText(uploadAuth);
    if (!parsed) {
        // Text that is not base64 reaches the JSON reader as no data: the same format error.
        vodLogDebug(kLogSource, kUploadAuthNotJson);
        return false;
    }
    const UploadAuth& auth = *parsed.value;
    return resumeWithToken(auth.accessKeyId.value_or(""), auth.accessKeySecret.value_or(""),
                           auth.securityToken.value_or(""), auth.expireTime().value_or(""));
}

}  // namespace quorvane
