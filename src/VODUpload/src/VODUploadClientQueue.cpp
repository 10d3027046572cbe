// The file queue as the host edits it (adding, removing, cancelling and resuming entries) and the run
// control (start, stop, pause, resume). Each runs as one step on the engine's queue.
#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadClient.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

bool present(const std::string& text) { return !text.empty(); }

bool inRange(int index, std::size_t size) { return index >= 0 && static_cast<std::size_t>(index) < size; }

}  // namespace

bool VODUploadClient::addFile(const std::string& filePath, std::shared_ptr<VodInfo> vodInfo) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "addFile called." + filePath);
        if (!present(filePath)) return false;
        auto entry = std::make_shared<UploadFileInfo>();
        entry->filePath = filePath;
        entry->vodInfo = std::move(vodInfo);
        e.uploadList_.push_back(std::move(entry));
        return true;
    });
}

bool VODUploadClient::addFile(const std::string& filePath, std::string endpoint, std::string bucket,
                              std::string object) {
    return addFile(filePath, std::move(endpoint), std::move(bucket), std::move(object), nullptr);
}

bool VODUploadClient::addFile(const std::string& filePath, std::string endpoint, std::string bucket,
                              std::string object, std::shared_ptr<VodInfo> vodInfo) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "addFile called." + filePath);
        if (!present(filePath) || !present(endpoint) || !present(bucket) || !present(object)) return false;
        auto entry = std::make_shared<UploadFileInfo>();
        entry->filePath = filePath;
        entry->endpoint = std::move(endpoint);
        entry->bucket = std::move(bucket);
        entry->object = std::move(object);
        entry->vodInfo = std::move(vodInfo);
        e.uploadList_.push_back(std::move(entry));
        e.sendUploadEvent(20001, {{"ql", e.uploadList_.size()}});
        return true;
    });
}

bool VODUploadClient::deleteFile(int index) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "deleteFile called." + std::to_string(index));
        if (!inRange(index, e.uploadList_.size())) return false;
        if (e.uploadList_[index]->state == UploadFileState::Uploading) {
            e.cancelUploadRequest(false);
            e.next();  // the entry is not Ready, so it is not picked again
        }
        auto entry = e.uploadList_[index];
        e.uploadList_.erase(e.uploadList_.begin() + index);
        e.serviceConfig_.cache().clearObjectWithPath(entry->filePath);
        return true;
    });
}

bool VODUploadClient::clearFiles() {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "clearFiles called.");
        for (const auto& entry : e.uploadList_) e.serviceConfig_.cache().clearObjectWithPath(entry->filePath);
        e.uploadList_.clear();
        // The state and the current file stay as they are; the cancelled request reports on its own.
        if (e.cur() && e.cur()->state == UploadFileState::Uploading) e.cancelUploadRequest(false);
        return true;
    });
}

bool VODUploadClient::cancelFile(int index) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "cancelFile called." + std::to_string(index));
        if (!inRange(index, e.uploadList_.size())) return false;
        auto entry = e.uploadList_[index];
        if (entry->state == UploadFileState::Canceled || entry->state == UploadFileState::Success ||
            entry->state == UploadFileState::Failure)
            return false;
        entry->state = UploadFileState::Canceled;
        // Tested after the entry was marked, so a running upload of it is left to finish: hosts rely on
        // a cancelled current file still completing.
        if (entry->state == UploadFileState::Uploading) {
            e.cancelUploadRequest(false);
            e.next();
        }
        return true;
    });
}

bool VODUploadClient::resumeFile(int index) {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "resumeFile called." + std::to_string(index));
        if (!inRange(index, e.uploadList_.size())) return false;
        auto entry = e.uploadList_[index];
        if (entry->state != UploadFileState::Canceled) return false;
        entry->state = UploadFileState::Ready;
        const int current = static_cast<int>(e.state_.load());
        if (current == static_cast<int>(VODClientState::Finished) || current == 6) {
            e.transitionTo(VODClientState::Started);
            e.next();
        }
        return true;
    });
}

bool VODUploadClient::start() {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "start called.");
        if (e.state_ == VODClientState::Started) return false;
        e.transitionTo(VODClientState::Started);
        e.next();
        return true;
    });
}

bool VODUploadClient::stop() {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "stop called.");
        if (e.state_ != VODClientState::Started && e.state_ != VODClientState::Paused) return false;
        e.transitionTo(VODClientState::Stopped);
        e.cancelUploadRequest(true);
        e.uploadRequest_.reset();
        return true;
    });
}

bool VODUploadClient::pause() {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "pause called.");
        if (e.state_ != VODClientState::Started) return false;
        e.transitionTo(VODClientState::Paused);
        e.cancelUploadRequest(true);  // the request is kept: resume continues its upload id
        return true;
    });
}

bool VODUploadClient::resume() {
    auto& e = *engine_;
    return e.serially([&] {
        vodLogDebug(VODUploadEngine::kLogSource, "resume called.");
        if (e.state_ != VODClientState::Paused) return false;
        e.transitionTo(VODClientState::Started);
        if (e.uploadUnderWay())
            e.resumableUpload();
        else
            e.next();
        return true;
    });
}

bool VODUploadClient::waitUntilSettled(std::chrono::milliseconds timeout) const {
    auto& e = *engine_;
    std::unique_lock lock(e.stateMutex_);
    return e.stateChanged_.wait_for(lock, timeout,
                                    [&e] { return e.state_.load() != VODClientState::Started || e.halted_; });
}

void VODUploadClient::setLogStore(const std::string& logStore) {
    auto& e = *engine_;
    if (e.eventManager_) e.eventManager_->setLogstore(logStore);
}

void VODUploadClient::setVideoId(std::optional<std::string> videoId) {
    auto& e = *engine_;
    e.serially([&] { e.upload_->curVideoId = std::move(videoId); });
}

void VODUploadClient::setListener(std::shared_ptr<VODUploadListener> listener) {
    auto& e = *engine_;
    e.serially([&] { e.callback_ = std::move(listener); });
}

std::vector<std::shared_ptr<UploadFileInfo>> VODUploadClient::listFiles() const {
    auto& e = *engine_;
    return e.serially([&] { return e.uploadList_; });
}

}  // namespace quorvane
