#include "VODUpload/src/VODUploadEngine.h"

#include <pwd.h>
#include <unistd.h>

#include <cmath>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "foundation/temp_files.h"

namespace quorvane {
namespace {

// The caches directory of the account the process runs as, from the password database; the
// temporary directory for an account without a home.
std::string accountCachesDirectory() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir &&
        *found->pw_dir)
        return std::string(found->pw_dir) + "/.cache";
    return foundation::temporaryDirectory();
}

}  // namespace

VODUploadEngine::VODUploadEngine() : VODUploadEngine(VODServiceConfig{}) {}

VODUploadEngine::VODUploadEngine(VODServiceConfig config)
    : serviceConfig_(std::move(config)),
      queue_(std::make_shared<foundation::SerialQueue>("com.quorvane.vodupload")),
      ossConfig_(std::make_shared<OSSConfig>()),
      eventManager_(AVCVEventManager::sharedManager()->newInstance("upload")),
      retry_([queue = queue_](std::chrono::milliseconds wait, std::function<void()> f) {
          foundation::after(std::chrono::duration<double>(wait).count(), queue, std::move(f));
      }) {
    options_.recordDirectoryPath =
        serviceConfig_.recordDirectory.empty() ? accountCachesDirectory() : serviceConfig_.recordDirectory;
    eventManager_->setEndpoint(serviceConfig_.logServiceEndpoint);
    if (serviceConfig_.httpClient) {
        // Events go through the client's own HTTP client too, on a sender of their own.
        AVCVEventTransportOptions options;
        options.client = serviceConfig_.httpClient;
        eventManager_->setTransport(std::make_shared<AVCVEventTransport>(std::move(options)));
    }
}

void VODUploadEngine::later(std::function<void(VODUploadEngine&)> f) {
    queue_->async([weak = weak_from_this(), f = std::move(f)] {
        if (auto self = weak.lock()) self->guarded([&] { f(*self); });
    });
}

void VODUploadEngine::onAnswer(const RequestTicket& ticket, std::function<void(VODUploadEngine&)> f) {
    later([ticket, f = std::move(f)](VODUploadEngine& c) {
        if (c.answers(ticket)) f(c);
    });
}

// Runs on the queue. The engine is never a const object (it is made by make_shared): the const of
// serially, which getters share, is shed to fail the file.
void VODUploadEngine::stepThrew(const std::string& what) const {
    auto& self = const_cast<VODUploadEngine&>(*this);
    vodLogError(kLogSource, "An upload step failed: " + what);
    const auto cur = self.cur();
    if (!cur || cur->state == UploadFileState::Success || cur->state == UploadFileState::Failure ||
        cur->state == UploadFileState::Canceled)
        return;
    self.failCurrentFile("ExceptionCaught", "the upload engine failed on this file: " + what);
}

void VODUploadEngine::transitionTo(VODClientState next) {
    {
        // Stored under the mutex so a waiter cannot miss the change between its test and its wait.
        std::lock_guard lock(stateMutex_);
        state_ = next;
        halted_ = false;
    }
    stateChanged_.notify_all();
}

void VODUploadEngine::setHalted(bool halted) {
    {
        std::lock_guard lock(stateMutex_);
        halted_ = halted;
    }
    stateChanged_.notify_all();
}

void VODUploadEngine::setRetryWait(std::chrono::milliseconds wait) {
    serially([&] { retry_.setWait(wait); });
}

VODUploadOptions VODUploadEngine::options() const {
    std::lock_guard lock(optionsMutex_);
    return options_;
}

// The resume cache may be shared with other clients: only a change of this client's switch moves it.
void VODUploadEngine::optionsChanged(const VODUploadOptions& before, const VODUploadOptions& now) {
    if (now.recordUploadProgress != before.recordUploadProgress)
        serviceConfig_.cache().setEnabled(now.recordUploadProgress);
    if (eventManager_ && now.reportEnabled != before.reportEnabled) eventManager_->setEnabled(now.reportEnabled);
}

oss::OSSClientConfiguration VODUploadEngine::storageConfiguration() const {
    const auto o = options();
    oss::OSSClientConfiguration conf;
    conf.httpClient = serviceConfig_.httpClient;
    conf.timeoutIntervalForRequest = o.timeoutIntervalForRequest;
    conf.caFile = o.caFile;
    conf.maxConcurrentParts = o.maxConcurrentParts;
    conf.signatureVersion = o.storageSignatureVersion;
    conf.region = o.storageRegion;
    return conf;
}

double VODUploadOptions::requestTimeoutOrDefault(double seconds) {
    return seconds > 0 && std::isfinite(seconds) ? seconds : VODUploadOptions{}.timeoutIntervalForRequest;
}

std::shared_ptr<OSSConfig> VODUploadEngine::ossConfig() const { return serially([&] { return ossConfig_; }); }
std::shared_ptr<OSSConfig> VODUploadEngine::openApiConfig() const {
    return serially([&] { return openApiConfig_; });
}
std::optional<std::string> VODUploadEngine::curUploadAddress() const {
    return serially([&] { return curUploadAddress_; });
}
std::optional<std::string> VODUploadEngine::curVideoId() const { return serially([&] { return upload_->curVideoId; }); }
std::optional<std::string> VODUploadEngine::curImageURL() const { return serially([&] { return upload_->curImageURL; }); }
std::shared_ptr<VODUploadListener> VODUploadEngine::listener() const { return serially([&] { return callback_; }); }

}  // namespace quorvane
