// Set-up, settings and the engine listener of the short-video client.
#include "VODUpload/src/VODUploadSVideoClient.h"

#include "VODUpload/src/VODLog.h"

namespace quorvane {

VODUploadSVideoClient::VODUploadSVideoClient() : VODUploadSVideoClient(VODServiceConfig::current()) {}

VODUploadSVideoClient::VODUploadSVideoClient(VODServiceConfig config)
    : client_(VODUploadClient::create(std::move(config))) {}

std::shared_ptr<VODUploadSVideoClient> VODUploadSVideoClient::create() { return create(VODServiceConfig::current()); }

std::shared_ptr<VODUploadSVideoClient> VODUploadSVideoClient::create(VODServiceConfig config) {
    auto client = std::make_shared<VODUploadSVideoClient>(std::move(config));
    client->init();
    return client;
}

bool VODUploadSVideoClient::init() {
    setup();
    return true;
}

void VODUploadSVideoClient::setup() {
    client_->init(makeListener());
    client_->setLogStore("svideo");
    setStepAndStatus(0, kStatusIdle);
    setTranscode(true);
    setRecordUploadProgress(true);
    setReportEnabled(true);
    setMaxRetryCount(2147483647u);
    setTimeoutIntervalForRequest(30.0);
    setRegion("cn-shanghai");
}

std::shared_ptr<VODUploadListener> VODUploadSVideoClient::makeListener() {
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    auto listener = std::make_shared<VODUploadListener>();
    listener->finish = [weak](const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result) {
        if (auto self = weak.lock()) self->onEngineFinish(file, result);
    };
    listener->failure = [weak](const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                               const std::string& message) {
        if (auto self = weak.lock()) self->onEngineFailure(file, code, message);
    };
    listener->progress = [weak](const std::shared_ptr<UploadFileInfo>& file, long uploaded, long /*total*/) {
        if (auto self = weak.lock()) self->onEngineProgress(file, uploaded);
    };
    listener->expire = [weak] {
        auto self = weak.lock();
        if (!self || !self->engineRunIsCurrent("expire")) return;
        if (auto delegate = self->delegate()) delegate->uploadTokenExpired();
    };
    listener->retry = [weak] {
        auto self = weak.lock();
        if (!self || !self->engineRunIsCurrent("retry")) return;
        vodLogDebug(kLogSource, "svideo client OnUploadRertyListener");
        if (auto delegate = self->delegate()) delegate->uploadRetry();
    };
    listener->retryResume = [weak] {
        auto self = weak.lock();
        if (!self || !self->engineRunIsCurrent("retry resume")) return;
        vodLogDebug(kLogSource, "svideo client OnUploadRertyResumeListener");
        if (auto delegate = self->delegate()) delegate->uploadRetryResume();
    };
    listener->started = [weak](const std::shared_ptr<UploadFileInfo>& file) {
        if (auto self = weak.lock()) self->onEngineStarted(file);
    };
    return listener;
}

bool VODUploadSVideoClient::isEngineFileLocked(const std::shared_ptr<UploadFileInfo>& file) const {
    return file && job_.engineFile && file->vodInfo == job_.engineFile;
}

bool VODUploadSVideoClient::engineRunIsCurrent(const char* what) const {
    {
        std::lock_guard guard(lock_);
        if (job_.engineFile) return true;
    }
    dropStale(what);
    return false;
}

void VODUploadSVideoClient::onEngineFinish(const std::shared_ptr<UploadFileInfo>& file,
                                           const VodUploadResult& result) {
    std::unique_lock guard(lock_);
    if (!isEngineFileLocked(file)) {
        guard.unlock();
        dropStale("engine finish");
        return;
    }
    if (step_ == 3) {
        step_ = 4;  // the cover is up
        job_.engineFile.reset();
        const bool paused = status_ == kStatusPaused;
        const std::uint64_t job = job_.generation;
        guard.unlock();
        if (!paused) createUploadVideo(job);
        return;
    }
    if (step_ != 7) return;
    step_ = 0;
    status_ = kStatusIdle;
    job_.engineFile.reset();
    VodSVideoUploadResult done;
    done.videoId = job_.curVideoId;
    done.imageUrl = job_.curImageURL;
    done.bucket = result.bucket;
    done.endpoint = result.endpoint;
    guard.unlock();
    auto delegate = this->delegate();
    if (!delegate) return;
    delegate->uploadSuccessWithVid(done.videoId, done.imageUrl);
    delegate->uploadSuccessWithResult(done);
}

void VODUploadSVideoClient::onEngineFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                                            const std::string& message) {
    {
        std::unique_lock guard(lock_);
        engineHalted_ = true;  // whichever run the file was in, the engine now waits on it
        if (!isEngineFileLocked(file)) {
            guard.unlock();
            dropStale("engine failure");
            return;
        }
        step_ = 0;
        status_ = kStatusIdle;
        job_.engineFile.reset();
    }
    if (auto delegate = this->delegate()) delegate->uploadFailedWithCode(code, message);
}

void VODUploadSVideoClient::onEngineProgress(const std::shared_ptr<UploadFileInfo>& file, long uploaded) {
    std::int64_t done = 0, all = 0;
    {
        // The engine's total is one file's; the bar spans both. Progress is too frequent to log drops.
        std::lock_guard guard(lock_);
        if (!isEngineFileLocked(file) || (step_ != 3 && step_ != 7)) return;
        all = job_.imageFileSize + job_.videoFileSize;
        done = step_ == 3 ? uploaded : job_.imageFileSize + uploaded;
    }
    if (auto delegate = this->delegate()) delegate->uploadProgressWithUploadedSize(done, all);
}

// The engine asks for the current slot: the file goes where the service said, with its credentials.
void VODUploadSVideoClient::onEngineStarted(const std::shared_ptr<UploadFileInfo>& file) {
    std::unique_lock guard(lock_);
    if (!isEngineFileLocked(file)) {
        guard.unlock();
        dropStale("engine start");
        return;
    }
    const auto videoId = job_.curVideoId;
    const auto auth = job_.curAuth;
    const auto address = job_.curAddress;
    guard.unlock();
    client_->setVideoId(videoId);
    client_->setUploadAuthAndAddress(file, auth.value_or(""), address.value_or(""));
}

std::int32_t VODUploadSVideoClient::status() const {
    std::lock_guard guard(lock_);
    return status_;
}

std::int32_t VODUploadSVideoClient::step() const {
    std::lock_guard guard(lock_);
    return step_;
}

std::optional<VODUploadSVideoClient::Job> VODUploadSVideoClient::advance(std::uint64_t job, std::int32_t step) {
    {
        std::lock_guard guard(lock_);
        if (job == job_.generation) {
            step_ = step;
            return job_;
        }
    }
    dropStale("next step");
    return std::nullopt;
}

bool VODUploadSVideoClient::isCurrent(std::uint64_t job) const {
    std::lock_guard guard(lock_);
    return job == job_.generation;
}

void VODUploadSVideoClient::dropStale(const char* what) {
    vodLogDebug(kLogSource, std::string("svideo client ignores ") + what + " of an earlier job");
}

void VODUploadSVideoClient::setStatus(std::int32_t status) {
    std::lock_guard guard(lock_);
    status_ = status;
}

void VODUploadSVideoClient::setStepAndStatus(std::int32_t step, std::int32_t status) {
    std::lock_guard guard(lock_);
    step_ = step;
    status_ = status;
}

void VODUploadSVideoClient::setCurTask(std::shared_ptr<foundation::HttpTask> task, std::uint64_t job) {
    {
        std::lock_guard guard(lock_);
        if (job == job_.generation) {
            curTask_ = std::move(task);
            return;
        }
    }
    if (task) task->cancel();
}

void VODUploadSVideoClient::setRequestId(const std::string& requestId) { client_->setRequestId(requestId); }

void VODUploadSVideoClient::setTranscode(bool on) {
    transcode_ = on;
    client_->setTranscode(on);
}

void VODUploadSVideoClient::setRecordUploadProgress(bool on) {
    recordUploadProgress_ = on;
    client_->setRecordUploadProgress(on);
}

void VODUploadSVideoClient::setReportEnabled(bool on) {
    reportEnabled_ = on;
    client_->setReportEnabled(on);
}

void VODUploadSVideoClient::setMaxRetryCount(std::uint32_t count) {
    maxRetryCount_ = count;
    client_->setMaxRetryCount(static_cast<std::int32_t>(count));
}

void VODUploadSVideoClient::setTimeoutIntervalForRequest(double seconds) {
    timeoutIntervalForRequest_ = seconds;
    client_->setTimeoutIntervalForRequest(seconds);
}

void VODUploadSVideoClient::setUploadPartSize(std::int32_t bytes) {
    uploadPartSize_ = bytes;
    client_->setUploadPartSize(bytes);
}

void VODUploadSVideoClient::setRecordDirectoryPath(std::optional<std::string> path) {
    recordDirectoryPath_ = std::move(path);
    if (recordDirectoryPath_) client_->setRecordDirectoryPath(*recordDirectoryPath_);
}

void VODUploadSVideoClient::setRegion(std::string region) {
    region_ = std::move(region);
    client_->setRegion(region_);
}

}  // namespace quorvane
