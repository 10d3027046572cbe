// Credentials as the engine's steps use them: the records, the upload auth and address texts, and the
// credential provider of each object-storage client.
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadAuthParser.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

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
        auto& cache = serviceConfig_.cache();
        std::string curPath = cur() ? cur()->filePath : std::string();
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

}  // namespace quorvane
