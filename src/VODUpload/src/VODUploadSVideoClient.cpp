// Set-up, settings, the engine listener and the hand-over of each file to the engine.
#include "VODUpload/src/VODUploadSVideoClient.h"

#include <utility>

#include "VODUpload/src/VODLog.h"
#include "foundation/dispatch.h"

namespace quorvane {

VODUploadSVideoClient::VODUploadSVideoClient() : VODUploadSVideoClient(VODServiceConfig{}) {}

VODUploadSVideoClient::VODUploadSVideoClient(VODServiceConfig config)
    : client_(VODUploadClient::create(std::move(config))),
      queue_(std::make_shared<foundation::SerialQueue>("com.quorvane.svideoupload")) {}

std::shared_ptr<VODUploadSVideoClient> VODUploadSVideoClient::create() { return create(VODServiceConfig{}); }

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
    serially([&] {
        client_->init(makeListener(nullptr));  // no run yet: every file the engine names is an earlier one
        client_->setLogStore("svideo");
        setStepAndStatus(Step::Idle, kStatusIdle);
    });
    setTranscode(true);
    setRecordUploadProgress(true);
    setReportEnabled(true);
    setMaxRetryCount(2147483647u);
    setTimeoutIntervalForRequest(30.0);
    setRegion("cn-shanghai");
}

void VODUploadSVideoClient::later(std::function<void(VODUploadSVideoClient&)> f) {
    queue_->async([weak = weak_from_this(), f = std::move(f)] {
        if (auto self = weak.lock()) f(*self);
    });
}

void VODUploadSVideoClient::setStepAndStatus(Step step, std::int32_t status) {
    step_ = step;
    status_ = status;
}

// A listener for one run of the engine. Its events hop onto the queue; only `started` is answered
// where it is raised, because the engine goes on with the file as soon as it returns: the slot it
// needs is the one this run was handed over with.
std::shared_ptr<VODUploadListener> VODUploadSVideoClient::makeListener(const std::shared_ptr<VodInfo>& runFile) {
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    auto listener = std::make_shared<VODUploadListener>();
    listener->started = [weak, engine = std::weak_ptr<VODUploadClient>(client_), runFile, videoId = job_.curVideoId,
                         auth = job_.curAuth.value_or(""),
                         address = job_.curAddress.value_or("")](const std::shared_ptr<UploadFileInfo>& file) {
        auto client = engine.lock();
        if (!client || !runFile || !file || file->vodInfo != runFile) {
            dropStale("engine start");
            return;
        }
        client->setVideoId(videoId);
        client->setUploadAuthAndAddress(file, auth, address);
        if (auto self = weak.lock()) self->later([file](VODUploadSVideoClient& c) { c.onEngineStarted(file); });
    };
    listener->finish = [weak](const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result) {
        if (auto self = weak.lock())
            self->later([file, result](VODUploadSVideoClient& c) { c.onEngineFinish(file, result); });
    };
    listener->failure = [weak](const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                               const std::string& message) {
        if (auto self = weak.lock())
            self->later([file, code, message](VODUploadSVideoClient& c) { c.onEngineFailure(file, code, message); });
    };
    listener->progress = [weak](const std::shared_ptr<UploadFileInfo>& file, long uploaded, long /*total*/) {
        if (auto self = weak.lock())
            self->later([file, uploaded](VODUploadSVideoClient& c) { c.onEngineProgress(file, uploaded); });
    };
    listener->expire = [weak] {
        if (auto self = weak.lock()) self->later([](VODUploadSVideoClient& c) { c.onEngineExpire(); });
    };
    listener->retry = [weak] {
        if (auto self = weak.lock())
            self->later([](VODUploadSVideoClient& c) {
                if (!c.runHasEngine("retry")) return;
                vodLogDebug(kLogSource, "svideo client OnUploadRertyListener");
                c.tellDelegate([](auto& d) { d.uploadRetry(); });
            });
    };
    listener->retryResume = [weak] {
        if (auto self = weak.lock())
            self->later([](VODUploadSVideoClient& c) {
                if (!c.runHasEngine("retry resume")) return;
                vodLogDebug(kLogSource, "svideo client OnUploadRertyResumeListener");
                c.tellDelegate([](auto& d) { d.uploadRetryResume(); });
            });
    };
    return listener;
}

// Hands one file to the engine as its only queue entry and starts it.
void VODUploadSVideoClient::runEngine(const std::string& path, std::shared_ptr<VodInfo> info) {
    runFile_ = info;
    engineTookRun_ = false;
    client_->setListener(makeListener(info));
    client_->clearFiles();
    client_->addFile(path, std::move(info));
    if (std::exchange(engineHalted_, false)) client_->stop();
    // Refused while the engine is still ending a run of an earlier job (a cancelled upload that has not
    // reported yet): the engine's own next step takes the first Ready file, which is this one.
    client_->start();
}

// The engine goes on with the file it has after new credentials or a pause; the listener carries
// the slot the job holds now, in case the engine asks for it again.
void VODUploadSVideoClient::resumeEngine() {
    if (runFile_) client_->setListener(makeListener(runFile_));
    client_->resumeWithAuth(job_.curAuth.value_or(""));
}

bool VODUploadSVideoClient::isRunFile(const std::shared_ptr<UploadFileInfo>& file) const {
    return file && runFile_ && file->vodInfo == runFile_;
}

bool VODUploadSVideoClient::runHasEngine(const char* what) const {
    if (runFile_ && engineTookRun_) return true;
    dropStale(what);
    return false;
}

void VODUploadSVideoClient::dropStale(const char* what) {
    vodLogDebug(kLogSource, std::string("svideo client ignores ") + what + " of an earlier job");
}

void VODUploadSVideoClient::onEngineStarted(const std::shared_ptr<UploadFileInfo>& file) {
    if (!isRunFile(file)) return;
    engineTookRun_ = true;
    // Paused while the engine was still ending an earlier run: this one waits for resume.
    if (status_ == kStatusPaused) client_->pause();
}

void VODUploadSVideoClient::onEngineFinish(const std::shared_ptr<UploadFileInfo>& file,
                                           const VodUploadResult& result) {
    if (!isRunFile(file)) return dropStale("engine finish");
    // The engine has moved its queue on in the same step that reported this: it is free for the video.
    const Step step = step_;
    if (step == Step::CoverUploading) {
        runFile_.reset();
        setStep(Step::CoverUploaded);
        if (status_ != kStatusPaused) createUploadVideo();
        return;
    }
    if (step != Step::VideoUploading) return;
    runFile_.reset();
    setStepAndStatus(Step::Idle, kStatusIdle);
    VodSVideoUploadResult done;
    done.videoId = job_.curVideoId;
    done.imageUrl = job_.curImageURL;
    done.bucket = result.bucket;
    done.endpoint = result.endpoint;
    tellDelegate([&](auto& d) {
        d.uploadSuccessWithVid(done.videoId, done.imageUrl);
        d.uploadSuccessWithResult(done);
    });
}

void VODUploadSVideoClient::onEngineFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                                            const std::string& message) {
    if (!isRunFile(file)) {
        dropStale("engine failure");
        if (runFile_ && !engineTookRun_) {
            // The engine halted on an earlier job's file with this run's file queued behind it.
            client_->stop();
            client_->start();
        } else {
            engineHalted_ = true;
        }
        return;
    }
    engineHalted_ = true;
    runFile_.reset();
    setStepAndStatus(Step::Idle, kStatusIdle);
    tellDelegate([&](auto& d) { d.uploadFailedWithCode(code, message); });
}

void VODUploadSVideoClient::onEngineProgress(const std::shared_ptr<UploadFileInfo>& file, long uploaded) {
    // The engine's total is one file's; the bar spans both. Progress is too frequent to log drops.
    const Step step = step_;
    if (!isRunFile(file) || (step != Step::CoverUploading && step != Step::VideoUploading)) return;
    const std::int64_t all = job_.imageFileSize + job_.videoFileSize;
    const std::int64_t done = step == Step::CoverUploading ? uploaded : job_.imageFileSize + uploaded;
    tellDelegate([&](auto& d) { d.uploadProgressWithUploadedSize(done, all); });
}

void VODUploadSVideoClient::onEngineExpire() {
    if (runFile_ && !engineTookRun_) {
        // An earlier job's run paused the engine on its expired credentials; this run's file waits
        // behind it until the engine starts again.
        dropStale("expire");
        client_->start();
        return;
    }
    if (!runHasEngine("expire")) return;
    tellDelegate([](auto& d) { d.uploadTokenExpired(); });
}

void VODUploadSVideoClient::setRequestId(const std::string& requestId) { client_->setRequestId(requestId); }

void VODUploadSVideoClient::setTranscode(bool on) {
    serially([&] {
        store(&Settings::transcode, on);
        client_->setTranscode(on);
    });
}

void VODUploadSVideoClient::setRecordUploadProgress(bool on) {
    serially([&] {
        store(&Settings::recordUploadProgress, on);
        client_->setRecordUploadProgress(on);
    });
}

void VODUploadSVideoClient::setReportEnabled(bool on) {
    serially([&] {
        store(&Settings::reportEnabled, on);
        client_->setReportEnabled(on);
    });
}

void VODUploadSVideoClient::setMaxRetryCount(std::uint32_t count) {
    serially([&] {
        store(&Settings::maxRetryCount, count);
        client_->setMaxRetryCount(static_cast<std::int32_t>(count));
    });
}

void VODUploadSVideoClient::setTimeoutIntervalForRequest(double seconds) {
    serially([&] {
        store(&Settings::timeoutIntervalForRequest, seconds);
        client_->setTimeoutIntervalForRequest(seconds);
    });
}

void VODUploadSVideoClient::setUploadPartSize(std::int32_t bytes) {
    serially([&] {
        store(&Settings::uploadPartSize, bytes);
        client_->setUploadPartSize(bytes);
    });
}

void VODUploadSVideoClient::setRecordDirectoryPath(std::optional<std::string> path) {
    serially([&] {
        if (path) client_->setRecordDirectoryPath(*path);
        store(&Settings::recordDirectoryPath, std::move(path));
    });
}

void VODUploadSVideoClient::setRegion(std::string region) {
    serially([&] {
        client_->setRegion(region);
        store(&Settings::region, std::move(region));
    });
}

void VODUploadSVideoClient::setAppId(std::optional<std::string> appId) {
    serially([&] { store(&Settings::appId, std::move(appId)); });
}

void VODUploadSVideoClient::setWorkflowId(std::optional<std::string> workflowId) {
    serially([&] { store(&Settings::workflowId, std::move(workflowId)); });
}

void VODUploadSVideoClient::setDelegate(std::weak_ptr<VODUploadSVideoClientDelegate> delegate) {
    serially([&] { store(&Settings::delegate, std::move(delegate)); });
}

}  // namespace quorvane
