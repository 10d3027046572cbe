// The multipart upload of the current file: the object-storage client, the initiation, the resumable
// upload with its progress handling, and the retry policy shared by both steps.
#include <algorithm>
#include <filesystem>
#include <thread>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODInnerApi.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadClient.h"
#include "foundation/dispatch.h"
#include "foundation/temp_files.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"

namespace quorvane {
namespace {

std::int64_t fileSizeOf(const std::string& path) {
    std::error_code ec;
    auto size = std::filesystem::file_size(path, ec);
    return ec ? 0 : static_cast<std::int64_t>(size);
}

// What the progress handler reads: taken when the upload request is made, so a later file does not
// leak into the reports of this one.
struct ProgressContext {
    std::weak_ptr<VODUploadClient> client;
    std::weak_ptr<AVCVEventManager> events;
    std::weak_ptr<VODInnerFileInfo> fileInfo;
    std::shared_ptr<UploadFileInfo> file;
    std::string uploadId, videoId, uploadAddress, region;
    std::int32_t partSize = 0;
    bool reportEnabled = true;
    std::function<void()> retryResume;
    std::function<void(const std::shared_ptr<UploadFileInfo>&, long, long)> progress;
    int lastPartNumber = 0;  // calls are serialised by the object-storage client
};

}  // namespace

void VODUploadClient::setRetrySleeper(RetrySleeper sleeper) { retrySleeper_ = std::move(sleeper); }

bool VODUploadClient::makeOSSClient() {
    const auto cur = cur_.load();
    client_ = std::make_shared<oss::OSSClient>(cur && cur->endpoint ? *cur->endpoint : std::string(),
                                               getCredentialProvider(), conf_);
    const bool created = client_->isValid();
    // The tags are the other way round from the messages; log readers match them as they are.
    if (created)
        vodLogError(kLogSource, "oss client init success!");
    else
        vodLogDebug(kLogSource, "oss client init failed.");
    return created;
}

void VODUploadClient::startOSSClientUpload() {
    makeOSSClient();
    initMultiUpload();  // a client without a usable endpoint fails there, like any other error
}

void VODUploadClient::initMultiUpload() {
    const auto cur = cur_.load();
    vodLogDebug(kLogSource, "send initMultiUpload request.....");
    if (!cur || !client_) return;
    auto request = std::make_shared<oss::OSSInitMultipartUploadRequest>();
    request->bucketName = cur->bucket.value_or("");
    request->objectKey = cur->object.value_or("");
    auto task = client_->multipartUploadInit(request);
    sendStartEvent();
    std::weak_ptr<VODUploadClient> weak = weak_from_this();
    task->continueWithBlock([weak](const auto& done) {
        if (auto self = weak.lock()) self->onInitMultiUpload(done);
    });
}

void VODUploadClient::onInitMultiUpload(const oss::OSSTask<oss::OSSInitMultipartUploadResult>& task) {
    const auto cur = cur_.load();
    if (auto error = task.error()) {
        vodLogDebug(kLogSource, "init uploadid failed, error: " + error->toString());
        sendUploadEvent(20004, {{"code", error->code}, {"message", error->description}});
        handleUploadError(*error, UploadStep::Init);
        return;
    }
    // The counter is reset without retryResume here: the upload has not moved yet.
    if (retryNotify_ != 0) retryNotify_ = 0;
    uploadId_ = task.result()->uploadId;
    vodLogDebug(kLogSource, "init uploadid success. uploadId:" + *uploadId_);
    if (!cur) return;
    cur->state = UploadFileState::Uploading;
    resumableUpload();
}

// A record left in the record directory by an earlier run (a crash, a restart) for this file and
// object names the upload that holds its parts: continue that one rather than the id just
// initiated. The request then goes without an id, so a record the service no longer knows falls
// back to a fresh initiation.
void VODUploadClient::adoptRecordedUpload(oss::OSSResumableUploadRequest& request) {
    if (request.recordDirectoryPath.empty()) return;
    Error error;
    auto file = oss::inspectLocalFile(request.uploadingFileURL, &error);
    if (!file) return;
    auto recordPath = std::filesystem::path(request.recordDirectoryPath) /
                      oss::checkpointFileName(request.bucketName, request.objectKey, file->path);
    auto text = foundation::readFile(recordPath.string());
    auto record = text ? oss::parseCheckpoint(*text) : std::nullopt;
    if (!record || record->uploadId.empty() || record->uploadId == request.uploadId) return;
    if (record->bucket != request.bucketName || record->objectKey != request.objectKey ||
        record->fileSize != file->size || record->fileMtimeNs != file->mtimeNs || record->partSize != request.partSize)
        return;
    vodLogDebug(kLogSource, "continue recorded uploadId:" + record->uploadId);
    uploadId_ = record->uploadId;
    request.uploadId.clear();
}

void VODUploadClient::resumableUpload() {
    const auto cur = cur_.load();
    vodLogDebug(kLogSource, "send resumableUpload request.....");
    if (!cur || !client_) return;
    client_->setCredentialProvider(getCredentialProvider());
    const std::int64_t size = fileSizeOf(cur->filePath);
    auto request = std::make_shared<oss::OSSResumableUploadRequest>();
    request->recordDirectoryPath = recordDirectoryPath_;
    request->bucketName = cur->bucket.value_or("");
    request->objectKey = cur->object.value_or("");
    request->uploadId = uploadId_.value_or("");
    request->partSize = std::max<std::int64_t>(uploadPartSize_, size / 4999);
    request->deleteUploadIdOnCancelling = !recordUploadProgress_;
    if (cur->vodInfo) request->completeMetaHeader["x-oss-notification"] = cur->vodInfo->toJson();
    request->uploadingFileURL = cur->filePath;
    adoptRecordedUpload(*request);

    auto context = std::make_shared<ProgressContext>();
    context->client = weak_from_this();
    context->events = eventManager_;
    context->fileInfo = curInnerFileInfo_;
    context->file = cur;
    context->uploadId = uploadId_.value_or("");
    context->videoId = curVideoId_.value_or("");
    context->uploadAddress = curUploadAddress_.value_or("");
    context->region = region_;
    context->partSize = uploadPartSize_;
    context->reportEnabled = reportEnabled_;
    if (callback_) {
        context->retryResume = callback_->retryResume;
        context->progress = callback_->progress;
    }
    request->uploadProgress = [context](std::int64_t bytesSent, std::int64_t totalSent, std::int64_t totalExpected) {
        auto self = context->client.lock();
        if (!self) return;
        auto& c = *context;
        if (vodLogEnabled())  // called for every step of every part: no text built for nobody
            vodLogDebug(kLogSource, std::to_string(bytesSent) + ", " + std::to_string(totalSent) + ", " +
                                        std::to_string(totalExpected));
        const int partNumber = c.partSize != 0 ? static_cast<int>(totalSent / c.partSize) : 0;
        const bool retrying = self->retryNotify_ != 0;
        if ((totalSent >= totalExpected || partNumber != c.lastPartNumber) && bytesSent != 0 && !retrying)
            self->sendUploadEvent(20007, Value::object());
        if (totalSent == 0 || partNumber != c.lastPartNumber)
            self->sendUploadEvent(20005, {{"ui", c.uploadId}, {"pn", partNumber}, {"pr", retrying ? 1 : 0}});
        auto fileInfo = c.fileInfo.lock();
        if (fileInfo && fileInfo->fileType == "video" && c.reportEnabled) {
            // The ratio of this call's bytes, not of the total: that is what the service expects.
            const float ratio = totalExpected > 0 ? static_cast<float>(bytesSent * 100 / totalExpected) / 100.0f : 0.0f;
            VODInnerApi::reportUploadProgress(*fileInfo, ratio, c.partSize, partNumber, c.uploadId, c.videoId,
                                              c.uploadAddress, c.region, nullptr);
        }
        c.lastPartNumber = partNumber;
        if (c.retryResume && self->retryNotify_ != 0) {
            c.retryResume();
            self->retryNotify_ = 0;
        }
        if (c.progress) c.progress(c.file, static_cast<long>(totalSent), static_cast<long>(totalExpected));
    };

    resumableUploadReq_.store(request);
    auto task = client_->resumableUpload(request);
    std::weak_ptr<VODUploadClient> weak = weak_from_this();
    task->continueWithBlock([weak](const auto& done) {
        if (auto self = weak.lock()) self->onResumableUpload(done);
    });
}

void VODUploadClient::onResumableUpload(const oss::OSSTask<oss::OSSResumableUploadResult>& task) {
    if (auto error = task.error()) {
        vodLogDebug(kLogSource, "resumableUpload error: " + error->toString());
        if (error->code != 5) {
            const Value params = {{"code", error->code}, {"message", error->description}};
            sendUploadEvent(20006, params);
            sendUploadEvent(20004, params);
        } else {
            sendUploadEvent(20008, Value::object());
        }
        handleUploadError(*error, UploadStep::Upload);
        return;
    }
    if (retryNotify_ != 0) {
        if (callback_ && callback_->retryResume) callback_->retryResume();
        retryNotify_ = 0;
    }
    vodLogDebug(kLogSource, "Upload file success");
    auto file = cur_.load();
    if (file) {
        file->state = UploadFileState::Success;
        VODObjectCache::sharedCache().clearObjectWithPath(file->filePath);
    }
    if (callback_ && callback_->success) callback_->success(file);
    if (callback_ && callback_->finish) {
        VodUploadResult result;
        result.videoId = curVideoId_;
        result.imageUrl = curImageURL_;
        if (file) {
            result.bucket = file->bucket;
            result.endpoint = file->endpoint;
        }
        callback_->finish(file, result);
    }
    resumableUploadReq_.store(nullptr);
    sendUploadEvent(20003, Value::object());
    next();
}

void VODUploadClient::failCurrentFile(const std::string& code, const std::string& message) {
    const auto cur = cur_.load();
    if (callback_ && callback_->failure) callback_->failure(cur, code, message);
    if (cur) cur->state = UploadFileState::Failure;
}

void VODUploadClient::failCurrentFile(const Error& error) {
    auto code = foundation::stringAt(error.userInfo, "Code");
    auto message = foundation::stringAt(error.userInfo, "Message");
    failCurrentFile(code ? *code : std::to_string(error.code), message ? *message : error.description);
}

void VODUploadClient::handleUploadError(const Error& error, UploadStep step) {
    const auto cur = cur_.load();
    switch (shouldRetry(error)) {
    case 0:
        failCurrentFile(error);  // the queue waits on the failed file
        if (step == UploadStep::Init) retryNotify_ = 0;
        return;
    case 2:
        vodLogDebug(kLogSource, "Token expire.");
        transitionTo(VODClientState::Paused);
        if (callback_ && callback_->expire) callback_->expire();
        return;
    case 3: {
        if (cur) cur->state = UploadFileState::Canceled;
        std::weak_ptr<VODUploadClient> weak = weak_from_this();
        foundation::dispatch::main().async([weak] {
            if (auto self = weak.lock()) self->next();
        });
        return;
    }
    case 4:
        return;  // stop or pause cancelled it
    default:
        retryUploadStep(error, step);
    }
}

void VODUploadClient::retryUploadStep(const Error& error, UploadStep step) {
    const auto cur = cur_.load();
    if (state_ == VODClientState::Paused) return;
    if (step == UploadStep::Init)
        vodLogDebug(kLogSource, "initMultiUpload Retry after 2 second....");
    else
        vodLogDebug(kLogSource, "resumableUpload Retry after 2 second...." +
                                    std::to_string(cur ? static_cast<long>(cur->state.load()) : 0L));
    if (static_cast<std::uint32_t>(retryNotify_.load()) >= static_cast<std::uint32_t>(maxRetryCount_)) {
        failCurrentFile(error);
        retryNotify_ = 0;
        return;
    }
    if (retryNotify_ == 0 && callback_ && callback_->retry) callback_->retry();
    ++retryNotify_;
    if (retrySleeper_)
        retrySleeper_(kRetryWait);
    else
        std::this_thread::sleep_for(kRetryWait);  // blocks this worker thread, as callers expect
    if (state_ == VODClientState::Paused) return;
    if (step == UploadStep::Init)
        initMultiUpload();
    else
        resumableUpload();
}

}  // namespace quorvane
