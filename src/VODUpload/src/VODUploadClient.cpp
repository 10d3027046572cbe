#include "VODUpload/src/VODUploadClient.h"

#include <cstdlib>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODObjectCache.h"
#include "foundation/temp_files.h"

namespace quorvane {
namespace {

// The user's cache directory: $XDG_CACHE_HOME, else ~/.cache, else the temporary directory.
std::string userCachesDirectory() {
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg) return xdg;
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.cache";
    return foundation::temporaryDirectory();
}

}  // namespace

VODUploadClient::VODUploadClient()
    : ossConfig_(std::make_shared<OSSConfig>()),
      eventManager_(AVCVEventManager::sharedManager()->newInstance("upload")),
      recordDirectoryPath_(userCachesDirectory()) {
    conf_.maxRetryCount = 2;
    conf_.timeoutIntervalForRequest = timeoutIntervalForRequest_;
}

void VODUploadClient::transitionTo(VODClientState next) {
    {
        // Stored under the mutex so a waiter cannot miss the change between its test and its wait.
        std::lock_guard lock(stateMutex_);
        state_ = next;
    }
    stateChanged_.notify_all();
}

bool VODUploadClient::waitUntilSettled(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(stateMutex_);
    return stateChanged_.wait_for(lock, timeout, [this] { return state_.load() != VODClientState::Started; });
}

void VODUploadClient::setTimeoutIntervalForRequest(double seconds) {
    timeoutIntervalForRequest_ = seconds;
    conf_.timeoutIntervalForRequest = seconds;  // object-storage clients made from now on
}

void VODUploadClient::setReportEnabled(bool on) {
    reportEnabled_ = on;
    if (eventManager_) eventManager_->setEnabled(on);
}

void VODUploadClient::setLogStore(const std::string& logStore) {
    if (eventManager_) eventManager_->setLogstore(logStore);
}

void VODUploadClient::setRecordUploadProgress(bool on) {
    recordUploadProgress_ = on;
    VODObjectCache::sharedCache().setEnabled(on);
}

}  // namespace quorvane
