// The queue's own steps: the upload events, cancelling the request under way, picking the next file
// and asking the video service for its upload auth and address.
#include "VODUpload/src/AVCVEventConstants.h"
#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "foundation/value.h"

namespace quorvane {
namespace {

constexpr const char* kNoExtensionMessage = "upload file path has no extension or extension type is not video/image";

}  // namespace

void VODUploadEngine::sendUploadEvent(long long eventCode, const Value& params) {
    if (!eventManager_) return;
    static const Value common = {{AVCVEventProductKey, AVCVEventProductUpload},
                                 {AVCVEventModuleKey, AVCVEventModuleUploader},
                                 {AVCVEventSubModuleKey, AVCVEventSubModuleUpload},
                                 {AVCVEventVersionKey, VODUploadSDKVersion}};
    eventManager_->sendEvent(eventCode, params, common);
}

// Cancels the request under way, if any; says so when it reports itself cancelled.
void VODUploadEngine::cancelUploadRequest(bool logWhenNone) {
    const auto request = uploadRequest_;
    if (!request) {
        if (logWhenNone) vodLogDebug(kLogSource, "No runnning upload request.");
        return;
    }
    request->cancel();
    if (request->isCancelled()) vodLogDebug(kLogSource, "Cancel upload request.");
}

void VODUploadEngine::next() {
    serially([&] {
        setHalted(false);
        {
            std::lock_guard lock(*credentialsMutex_);
            openApiConfig_.reset();
        }
        std::shared_ptr<UploadFileInfo> file;
        for (const auto& entry : uploadList_) {
            if (entry->state == UploadFileState::Ready) {
                file = entry;
                break;
            }
        }
        upload_ = std::make_shared<VODFileUpload>(file);
        if (!file) {
            transitionTo(VODClientState::Finished);
            return;
        }
        if (callback_ && callback_->started) callback_->started(file);
        upload_->innerFileInfo = std::make_shared<VODInnerFileInfo>(file->filePath);
        sendUploadEvent(20001, {{"ql", uploadList_.size()}});
        if (file->bucket && file->endpoint)
            startOSSClientUpload();
        else
            requestUploadAuthAddress();
    });
}

void VODUploadEngine::requestUploadAuthAddress() {
    serially([&] {
        const auto cur = this->cur();
        const std::string type = upload_->innerFileInfo ? upload_->innerFileInfo->fileType : "other";
        if (type == "other") {
            sendUploadEvent(20004, {{"code", "400"}, {"message", kNoExtensionMessage}});
            failCurrentFile("400", kNoExtensionMessage);
            return;  // the queue waits on this file until the caller moves it on
        }
        if (type == "img")
            createUploadImage();
        else
            createUploadVideo();
    });
}

}  // namespace quorvane
