// The host's credentials: set-up with a key pair or temporary credentials, the upload auth and
// address the video service issued, and the recovery after an expiry.
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODUploadAuthParser.h"
#include "VODUpload/src/VODUploadClient.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

bool allNonEmpty(std::initializer_list<const std::string*> values) {
    for (const auto* v : values)
        if (v->empty()) return false;
    return true;
}

}  // namespace

bool VODUploadClient::init(std::shared_ptr<VODUploadListener> listener) {
    auto& e = *engine_;
    return e.serially([&] {
        e.callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadClient::init(const std::string& accessKeyId, const std::string& accessKeySecret,
                           std::shared_ptr<VODUploadListener> listener) {
    auto& e = *engine_;
    return e.serially([&] {
        if (!allNonEmpty({&accessKeyId, &accessKeySecret})) return false;
        e.setCredentials(accessKeyId, accessKeySecret, std::nullopt, std::nullopt);
        e.callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadClient::init(const std::string& accessKeyId, const std::string& accessKeySecret,
                           const std::string& secretToken, const std::string& expireTime,
                           std::shared_ptr<VODUploadListener> listener) {
    auto& e = *engine_;
    return e.serially([&] {
        if (!allNonEmpty({&accessKeyId, &accessKeySecret, &secretToken, &expireTime})) return false;
        e.setCredentials(accessKeyId, accessKeySecret, secretToken, expireTime);
        e.callback_ = std::move(listener);
        return true;
    });
}

bool VODUploadClient::setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                               std::shared_ptr<VODUploadListener> listener) {
    return init(accessKeyId, accessKeySecret, std::move(listener));
}

bool VODUploadClient::setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                               const std::string& secretToken, const std::string& expireTime,
                               std::shared_ptr<VODUploadListener> listener) {
    return init(accessKeyId, accessKeySecret, secretToken, expireTime, std::move(listener));
}

bool VODUploadClient::setUploadAuthAndAddress(const std::shared_ptr<UploadFileInfo>& uploadInfo,
                                              const std::string& uploadAuth, const std::string& uploadAddress) {
    auto& e = *engine_;
    return e.serially([&] {
        if (!uploadInfo || uploadAuth.empty()) return false;
        if (!e.parseUploadAuth(uploadAuth, *e.ossConfig_)) return false;
        return e.parseUploadAddress(uploadAddress, uploadInfo);
    });
}

bool VODUploadClient::resumeWithToken(const std::string& accessKeyId, const std::string& accessKeySecret,
                                      const std::string& secretToken, const std::string& expireTime) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "resume upload with new token.");
        if (e.state_ != VODClientState::Paused) return false;
        if (!allNonEmpty({&accessKeyId, &accessKeySecret, &secretToken, &expireTime})) return false;
        e.setCredentials(accessKeyId, accessKeySecret, secretToken, expireTime);
        e.transitionTo(VODClientState::Started);
        e.continueAfterNewCredentials();
        return true;
    });
}

bool VODUploadClient::resumeWithAuth(const std::string& uploadAuth) {
    if (uploadAuth.empty()) return false;
    auto parsed = parseUploadAuthText(uploadAuth);
    if (!parsed) {
        // Text that is not base64 reaches the JSON reader as no data: the same format error.
        vodLogDebug(VODUploadEngine::kLogSource, kUploadAuthNotJson);
        return false;
    }
    const UploadAuth& auth = *parsed.value;
    return resumeWithToken(auth.accessKeyId.value_or(""), auth.accessKeySecret.value_or(""),
                           auth.securityToken.value_or(""), auth.expireTime().value_or(""));
}

}  // namespace quorvane
