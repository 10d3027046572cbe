// The file queue: adding, removing, cancelling and resuming entries, the run control (start, stop,
// pause, resume) and the step that picks the next file.
#include "VODUpload/src/AVCVEventConstants.h"
#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "foundation/value.h"

namespace quorvane {
namespace {

constexpr const char* kNoExtensionMessage = "upload file path has no extension or extension type is not video/image";

bool present(const std::string& text) { return !text.empty(); }

bool inRange(int index, std::size_t size) { return index >= 0 && static_cast<std::size_t>(index) < size; }

}  // namespace

void VODUploadEngine::sendUploadEvent(long long eventCode, const Value& params) {
    if (!eventManager_) return;
    static const Value common = {{AVCVEventProductKey, AVCVEventProductUpload},
                                 {AVCVEventModuleKey, AVCVEventModuleUploader},
                                 {AVCVEventSubModuleKey, AVCVEventSubModuleUpload},
                                 {AVCVEventVersionKey, VODUploadSDKVersion}};
    eventManager_->sendEvent(eventCode, params, common);
}

bool VODUploadEngine::addFile(const std::string& filePath, std::shared_ptr<VodInfo> vodInfo) {
    return serially([&] {
        vodLogDebug(kLogSource, "addFile called." + filePath);
        if (!present(filePath)) return false;
        auto entry = std::make_shared<UploadFileInfo>();
        entry->filePath = filePath;
        entry->vodInfo = std::move(vodInfo);
        uploadList_.push_back(std::move(entry));
        return true;
    });
}

bool VODUploadEngine::addFile(const std::string& filePath, std::string endpoint, std::string bucket,
                              std::string object) {
    return addFile(filePath, std::move(endpoint), std::move(bucket), std::move(object), nullptr);
}

bool VODUploadEngine::addFile(const std::string& filePath, std::string endpoint, std::string bucket,
                              std::string object, std::shared_ptr<VodInfo> vodInfo) {
    return serially([&] {
        vodLogDebug(kLogSource, "addFile called." + filePath);
        if (!present(filePath) || !present(endpoint) || !present(bucket) || !present(object)) return false;
        auto entry = std::make_shared<UploadFileInfo>();
        entry->filePath = filePath;
        entry->endpoint = std::move(endpoint);
        entry->bucket = std::move(bucket);
        entry->object = std::move(object);
        entry->vodInfo = std::move(vodInfo);
        uploadList_.push_back(std::move(entry));
        sendUploadEvent(20001, {{"ql", uploadList_.size()}});
        return true;
    });
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

bool VODUploadEngine::deleteFile(int index) {
    return serially([&] {
        vodLogDebug(kLogSource, "deleteFile called." + std::to_string(index));
        if (!inRange(index, uploadList_.size())) return false;
        if (uploadList_[index]->state == UploadFileState::Uploading) {
            cancelUploadRequest(false);
            next();  // the entry is not Ready, so it is not picked again
        }
        auto entry = uploadList_[index];
        uploadList_.erase(uploadList_.begin() + index);
        resumeCache().clearObjectWithPath(entry->filePath);
        return true;
    });
}

bool VODUploadEngine::clearFiles() {
    return serially([&] {
        vodLogDebug(kLogSource, "clearFiles called.");
        for (const auto& entry : uploadList_) resumeCache().clearObjectWithPath(entry->filePath);
        uploadList_.clear();
        // The state and the current file stay as they are; the cancelled request reports on its own.
        if (cur_ && cur_->state == UploadFileState::Uploading) cancelUploadRequest(false);
        return true;
    });
}

bool VODUploadEngine::cancelFile(int index) {
    return serially([&] {
        vodLogDebug(kLogSource, "cancelFile called." + std::to_string(index));
        if (!inRange(index, uploadList_.size())) return false;
        auto entry = uploadList_[index];
        if (entry->state == UploadFileState::Canceled || entry->state == UploadFileState::Success ||
            entry->state == UploadFileState::Failure)
            return false;
        entry->state = UploadFileState::Canceled;
        // Tested after the entry was marked, so a running upload of it is left to finish: hosts rely on
        // a cancelled current file still completing.
        if (entry->state == UploadFileState::Uploading) {
            cancelUploadRequest(false);
            next();
        }
        return true;
    });
}

bool VODUploadEngine::resumeFile(int index) {
    return serially([&] {
        vodLogDebug(kLogSource, "resumeFile called." + std::to_string(index));
        if (!inRange(index, uploadList_.size())) return false;
        auto entry = uploadList_[index];
        if (entry->state != UploadFileState::Canceled) return false;
        entry->state = UploadFileState::Ready;
        const int current = static_cast<int>(state_.load());
        if (current == static_cast<int>(VODClientState::Finished) || current == 6) {
            transitionTo(VODClientState::Started);
            next();
        }
        return true;
    });
}

bool VODUploadEngine::start() {
    return serially([&] {
        vodLogDebug(kLogSource, "start called.");
        if (state_ == VODClientState::Started) return false;
        transitionTo(VODClientState::Started);
        next();
        return true;
    });
}

bool VODUploadEngine::stop() {
    return serially([&] {
        vodLogDebug(kLogSource, "stop called.");
        if (state_ != VODClientState::Started && state_ != VODClientState::Paused) return false;
        transitionTo(VODClientState::Stopped);
        cancelUploadRequest(true);
        uploadRequest_.reset();
        return true;
    });
}

bool VODUploadEngine::pause() {
    return serially([&] {
        vodLogDebug(kLogSource, "pause called.");
        if (state_ != VODClientState::Started) return false;
        transitionTo(VODClientState::Paused);
        cancelUploadRequest(true);  // the request is kept: resume continues its upload id
        return true;
    });
}

bool VODUploadEngine::resume() {
    return serially([&] {
        vodLogDebug(kLogSource, "resume called.");
        if (state_ != VODClientState::Paused) return false;
        transitionTo(VODClientState::Started);
        if (uploadUnderWay())
            resumableUpload();
        else
            next();
        return true;
    });
}

void VODUploadEngine::next() {
    serially([&] {
        setHalted(false);
        attempt_ = {};
        cur_.reset();
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
        cur_ = file;
        if (!file) {
            transitionTo(VODClientState::Finished);
            return;
        }
        if (callback_ && callback_->started) callback_->started(file);
        attempt_.curInnerFileInfo = std::make_shared<VODInnerFileInfo>(file->filePath);
        sendUploadEvent(20001, {{"ql", uploadList_.size()}});
        if (file->bucket && file->endpoint)
            startOSSClientUpload();
        else
            requestUploadAuthAddress();
    });
}

void VODUploadEngine::requestUploadAuthAddress() {
    serially([&] {
        const auto cur = cur_;
        const std::string type = attempt_.curInnerFileInfo ? attempt_.curInnerFileInfo->fileType : "other";
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
