// Set-up, settings and the engine listener of the short-video client.
#include "VODUpload/src/VODUploadSVideoClient.h"

#include "VODUpload/src/VODLog.h"

namespace quorvane {

VODUploadSVideoClient::VODUploadSVideoClient() : client_(VODUploadClient::create()) {}

std::shared_ptr<VODUploadSVideoClient> VODUploadSVideoClient::create() {
    auto client = std::make_shared<VODUploadSVideoClient>();
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
    listener->finish = [weak](const std::shared_ptr<UploadFileInfo>&, const VodUploadResult& result) {
        if (auto self = weak.lock()) self->onEngineFinish(result);
    };
    listener->failure = [weak](const std::shared_ptr<UploadFileInfo>&, const std::string& code,
                               const std::string& message) {
        if (auto self = weak.lock()) self->onEngineFailure(code, message);
    };
    listener->progress = [weak](const std::shared_ptr<UploadFileInfo>&, long uploaded, long total) {
        if (auto self = weak.lock()) self->onEngineProgress(uploaded, total);
    };
    listener->expire = [weak] {
        auto self = weak.lock();
        if (!self) return;
        if (auto delegate = self->delegate()) delegate->uploadTokenExpired();
    };
    listener->retry = [weak] {
        auto self = weak.lock();
        if (!self) return;
        vodLogDebug(kLogSource, "svideo client OnUploadRertyListener");
        if (auto delegate = self->delegate()) delegate->uploadRetry();
    };
    listener->retryResume = [weak] {
        auto self = weak.lock();
        if (!self) return;
        vodLogDebug(kLogSource, "svideo client OnUploadRertyResumeListener");
        if (auto delegate = self->delegate()) delegate->uploadRetryResume();
    };
    listener->started = [weak](const std::shared_ptr<UploadFileInfo>& file) {
        if (auto self = weak.lock()) self->onEngineStarted(file);
    };
    return listener;
}

void VODUploadSVideoClient::onEngineFinish(const VodUploadResult& result) {
    std::unique_lock guard(lock_);
    if (step_ == 3) {
        step_ = 4;  // the cover is up
        const bool paused = status_ == kStatusPaused;
        guard.unlock();
        if (!paused) createUploadVideo();
        return;
    }
    if (step_ != 7) return;
    step_ = 0;
    status_ = kStatusIdle;
    guard.unlock();
    auto delegate = this->delegate();
    if (!delegate) return;
    delegate->uploadSuccessWithVid(curVideoId_, curImageURL_);
    VodSVideoUploadResult done;
    done.videoId = curVideoId_;
    done.imageUrl = curImageURL_;
    done.bucket = result.bucket;
    done.endpoint = result.endpoint;
    delegate->uploadSuccessWithResult(done);
}

void VODUploadSVideoClient::onEngineFailure(const std::string& code, const std::string& message) {
    {
        std::lock_guard guard(lock_);
        step_ = 0;
        status_ = kStatusIdle;
        engineHalted_ = true;
    }
    if (auto delegate = this->delegate()) delegate->uploadFailedWithCode(code, message);
}

void VODUploadSVideoClient::onEngineProgress(long uploaded, long total) {
    (void)total;  // the engine's total is one file's; the bar spans both
    const std::int64_t all = imageFileSize_ + videoFileSize_;
    const std::int32_t current = step();
    auto delegate = this->delegate();
    if (!delegate) return;
    if (current == 3)
        delegate->uploadProgressWithUploadedSize(uploaded, all);
    else if (current == 7)
        delegate->uploadProgressWithUploadedSize(imageFileSize_ + uploaded, all);
}

// The engine asks for the current slot: the file goes where the service said, with its credentials.
void VODUploadSVideoClient::onEngineStarted(const std::shared_ptr<UploadFileInfo>& file) {
    client_->setVideoId(curVideoId_);
    client_->setUploadAuthAndAddress(file, curAuth_.value_or(""), curAddress_.value_or(""));
}

std::int32_t VODUploadSVideoClient::status() const {
    std::lock_guard guard(lock_);
    return status_;
}

std::int32_t VODUploadSVideoClient::step() const {
    std::lock_guard guard(lock_);
    return step_;
}

void VODUploadSVideoClient::setStep(std::int32_t step) {
    std::lock_guard guard(lock_);
    step_ = step;
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

void VODUploadSVideoClient::setCurTask(std::shared_ptr<foundation::HttpTask> task, std::uint64_t generation) {
    {
        std::lock_guard guard(lock_);
        if (generation == generation_) {
            curTask_ = std::move(task);
            return;
        }
    }
    if (task) task->cancel();
}

std::uint64_t VODUploadSVideoClient::generation() const {
    std::lock_guard guard(lock_);
    return generation_;
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
