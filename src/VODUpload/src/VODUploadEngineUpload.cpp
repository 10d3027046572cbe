// The multipart upload of the current file: the object-storage client, the initiation, the resumable
// upload with its progress handling, and the retry policy shared by both steps. Completions and
// progress arrive on the object-storage client's threads and are posted to the client's queue.
#include <algorithm>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/VODInnerApi.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "VODUpload/src/VODUploadProgress.h"
#include "foundation/dispatch.h"
#include "oss/oss_local_file.h"
#include "oss/oss_error.h"
#include "oss/oss_region.h"
#include "oss/oss_upload_record.h"

namespace quorvane {

// What the progress handler reads: taken when the upload request is made, so a later file does not
// leak into the reports of this one.
struct VODUploadProgressContext {
    std::weak_ptr<VODInnerFileInfo> fileInfo;
    std::shared_ptr<UploadFileInfo> file;
    std::string uploadId, videoId, uploadAddress, region;
    VODUploadProgress parts{0};
    std::function<void()> retryResume;
    std::function<void(const std::shared_ptr<UploadFileInfo>&, long, long)> progress;
};

// At most about 5,000 parts whatever the file's size.
std::int64_t VODUploadEngine::partSizeFor(std::int64_t fileSize) const {
    return std::max<std::int64_t>(option(&VODUploadOptions::uploadPartSize), fileSize / 4999);
}

// The size is the one found when the upload began: a file changed since fails its upload anyway.
std::int64_t VODUploadEngine::currentPartSize() const {
    return partSizeFor(upload_->file ? static_cast<std::int64_t>(upload_->file->size) : 0);
}

std::optional<oss::OSSFileState> VODUploadEngine::fileState() const {
    if (!upload_->file || !upload_->fileStateHeld) return std::nullopt;
    return upload_->file->state();
}

void VODUploadEngine::lookAtFile() {
    if (upload_->file || !cur()) return;
    Error unreadable;  // reported by the upload itself
    upload_->file = oss::inspectLocalFile(cur()->filePath, &unreadable);
}

bool VODUploadEngine::makeOSSClient() {
    const std::string endpoint = cur() && cur()->endpoint ? *cur()->endpoint : std::string();
    auto conf = storageConfiguration();
    const std::string region = option(&VODUploadOptions::region);
    // The bucket's region for V4 signatures: configured, else named by the endpoint, else the one the
    // upload auth carried (the client's region).
    if (conf.region.empty() && !oss::regionFromEndpoint(endpoint) && oss::isValidRegion(region)) conf.region = region;
    // What the last client learnt of the service's clock saves the next one a refused request.
    if (client_) conf.clockOffset = client_->clockOffset();
    // The object-storage client's own retries of a request, shown to the listener like the engine's.
    conf.onRetry = [weak = weak_from_this()](const oss::OSSRetryNotice& n) {
        if (auto self = weak.lock())
            self->later([n](VODUploadEngine& c) {
                if (c.callback_ && c.callback_->retrying)
                    c.callback_->retrying({c.cur(), static_cast<int>(n.retry), static_cast<int>(n.limit),
                                           oss::retryCause(n.error), n.delay, true});
            });
    };
    client_ = std::make_shared<oss::OSSClient>(endpoint, getCredentialProvider(), std::move(conf));
    const bool created = client_->isValid();
    // The tags are the other way round from the messages; log readers match them as they are.
    if (created)
        vodLogError(kLogSource, "oss client init success!");
    else
        vodLogDebug(kLogSource, "oss client init failed.");
    return created;
}

void VODUploadEngine::startOSSClientUpload() {
    serially([&] {
        makeOSSClient();
        // What the file is now is what gets stored, or nothing: a later change fails the upload. A file
        // that cannot be looked at is reported by the upload itself.
        lookAtFile();
        upload_->fileStateHeld = true;
        initMultiUpload();  // a client without a usable endpoint fails there, like any other error
    });
}

void VODUploadEngine::initMultiUpload() {
    serially([&] {
        const auto options = this->options();
        const bool whole = options.singleRequestUpload && cur() && !cur()->vodInfo && upload_->file &&
                           upload_->file->size > 0 &&
                           upload_->file->size <= static_cast<std::uint64_t>(std::max(0, options.uploadPartSize));
        if (!whole) vodLogDebug(kLogSource, "send initMultiUpload request.....");
        if (!cur() || !client_) return;
        upload_->moveTo(VODFileUpload::Step::Initiating);
        lookAtFile();
        const std::string bucket = cur()->bucket.value_or(""), object = cur()->object.value_or("");
        // An upload an earlier run (a crash, a restart) began for this very file holds its stored
        // parts: continue it rather than begin another that would stay open on the service.
        auto recorded = upload_->file ? oss::recordedUpload(options.recordDirectoryPath, cur()->endpoint.value_or(""), bucket,
                                                            object, *upload_->file, currentPartSize())
                                      : std::nullopt;
        if (recorded) {
            sendStartEvent();
            upload_->uploadIdFromRecord = true;
            onUploadIdReady(recorded->uploadId, false);
            return;
        }
        if (whole) {
            sendStartEvent();
            retry_.reset();  // as an initiation's success: the upload has not moved
            upload_->wholeFilePut = true;
            cur()->state = UploadFileState::Uploading;
            putWholeFile();  // the file's step is Uploading from here
            return;
        }
        auto request = std::make_shared<oss::OSSInitMultipartUploadRequest>();
        request->bucketName = bucket;
        request->objectKey = object;
        auto task = client_->multipartUploadInit(request);
        sendStartEvent();
        task->continueWithBlock([weak = weak_from_this(), task, ticket = newRequest()](const auto&) {
            if (auto self = weak.lock()) self->onAnswer(ticket, [task](VODUploadEngine& c) { c.onInitMultiUpload(*task); });
        });
    });
}

void VODUploadEngine::onInitMultiUpload(const oss::OSSTask<oss::OSSInitMultipartUploadResult>& task) {
    if (auto error = task.error()) {
        vodLogDebug(kLogSource, "init uploadid failed, error: " + error->toString());
        sendUploadEvent(20004, {{"code", error->code}, {"message", error->description}});
        handleUploadError(*error);
        return;
    }
    onUploadIdReady(task.result()->uploadId, true);
}

void VODUploadEngine::onUploadIdReady(const std::string& uploadId, bool fresh) {
    // The counter is reset without retryResume here: the upload has not moved yet.
    retry_.reset();
    upload_->uploadId = uploadId;
    upload_->uploadIdIsNew = fresh;
    vodLogDebug(kLogSource, "init uploadid success. uploadId:" + uploadId);
    if (!cur()) return;
    cur()->state = UploadFileState::Uploading;
    resumableUpload();  // the file's step is Uploading from here
}

bool VODUploadEngine::uploadUnderWay() const {
    return upload_->wholeFilePut || (upload_->uploadId && !upload_->uploadId->empty());
}

std::shared_ptr<VODUploadProgressContext> VODUploadEngine::progressContext() const {
    auto context = std::make_shared<VODUploadProgressContext>();
    context->fileInfo = upload_->innerFileInfo;
    context->file = cur();
    context->uploadId = upload_->uploadId.value_or("");
    context->videoId = upload_->curVideoId.value_or("");
    context->uploadAddress = curUploadAddress_.value_or("");
    const auto options = this->options();
    context->region = options.region;
    context->parts = VODUploadProgress(options.uploadPartSize);
    if (callback_) {
        context->retryResume = callback_->retryResume;
        context->progress = callback_->progress;
    }
    return context;
}

std::function<void(std::int64_t, std::int64_t, std::int64_t)> VODUploadEngine::progressHandler(
    const RequestTicket& ticket) {
    return [weak = weak_from_this(), ticket, context = progressContext()](
               std::int64_t bytesSent, std::int64_t totalSent, std::int64_t totalExpected) {
        if (auto self = weak.lock())
            self->onAnswer(ticket, [context, bytesSent, totalSent, totalExpected](VODUploadEngine& c) {
                c.onProgress(context, bytesSent, totalSent, totalExpected);
            });
    };
}

// The end of a request no longer counted on (cancelled by pause, stop or deleteFile, and overtaken by
// a newer one): its cancellation is still reported, and nothing else of the client is touched.
void VODUploadEngine::onLateEnd(const std::optional<Error>& error) {
    vodLogDebug(kLogSource, "An earlier upload request ended: " + (error ? error->toString() : std::string("done")));
    if (error && isCancellation(*error)) sendUploadEvent(20008, Value::object());
}

void VODUploadEngine::putWholeFile() {
    serially([&] {
        vodLogDebug(kLogSource, "send putObject request.....");
        if (!cur() || !client_) return;
        upload_->moveTo(VODFileUpload::Step::Uploading);
        const auto ticket = newRequest();
        client_->setCredentialProvider(getCredentialProvider());
        auto request = std::make_shared<oss::OSSPutObjectRequest>();
        request->bucketName = cur()->bucket.value_or("");
        request->objectKey = cur()->object.value_or("");
        request->uploadingFileURL = cur()->filePath;
        request->expectedFileState = fileState();
        request->uploadProgress = progressHandler(ticket);
        uploadRequest_ = request;
        auto task = client_->putObject(request);
        task->continueWithBlock([weak = weak_from_this(), task, ticket](const auto&) {
            if (auto self = weak.lock())
                self->later([task, ticket](VODUploadEngine& c) {
                    if (!c.answers(ticket)) return c.onLateEnd(task->error());
                    if (auto error = task->error()) {
                        vodLogDebug(kLogSource, "putObject error: " + error->toString());
                        c.onUploadEnded(&*error);
                    } else {
                        c.onUploadEnded(nullptr);
                    }
                });
        });
    });
}

void VODUploadEngine::resumableUpload() {
    serially([&] {
        if (upload_->wholeFilePut) return putWholeFile();  // a retry or a resume of the single put
        vodLogDebug(kLogSource, "send resumableUpload request.....");
        if (!cur() || !client_) return;
        upload_->moveTo(VODFileUpload::Step::Uploading);
        const auto ticket = newRequest();
        client_->setCredentialProvider(getCredentialProvider());
        auto request = std::make_shared<oss::OSSResumableUploadRequest>();
        request->recordDirectoryPath = option(&VODUploadOptions::recordDirectoryPath);
        request->bucketName = cur()->bucket.value_or("");
        request->objectKey = cur()->object.value_or("");
        request->uploadId = upload_->uploadId.value_or("");
        request->uploadIdIsNew = std::exchange(upload_->uploadIdIsNew, false);
        request->partSize = currentPartSize();
        request->deleteUploadIdOnCancelling = !option(&VODUploadOptions::recordUploadProgress);
        if (cur()->vodInfo) request->completeMetaHeader["x-oss-notification"] = cur()->vodInfo->toJson();
        request->uploadingFileURL = cur()->filePath;
        request->expectedFileState = fileState();

        request->uploadProgress = progressHandler(ticket);

        request->uploadResumed = [weak = weak_from_this(), ticket](std::uint64_t stored, std::uint64_t) {
            if (auto self = weak.lock())
                self->onAnswer(ticket, [stored](VODUploadEngine& c) {
                    if (c.callback_ && c.callback_->resumed) c.callback_->resumed(c.cur(), stored);
                });
        };

        uploadRequest_ = request;
        auto task = client_->resumableUpload(request);
        task->continueWithBlock([weak = weak_from_this(), task, ticket](const auto&) {
            if (auto self = weak.lock())
                self->later([task, ticket](VODUploadEngine& c) {
                    if (!c.answers(ticket)) return c.onLateEnd(task->error());
                    c.onResumableUpload(*task);
                });
        });
    });
}

void VODUploadEngine::onProgress(const std::shared_ptr<VODUploadProgressContext>& context, std::int64_t bytesSent,
                                 std::int64_t totalSent, std::int64_t totalExpected) {
    auto& c = *context;
    if (vodLogEnabled())  // called for every step of every part: no text built for nobody
        vodLogDebug(kLogSource, std::to_string(bytesSent) + ", " + std::to_string(totalSent) + ", " +
                                    std::to_string(totalExpected));
    const bool retrying = retry_.retrying();
    const auto step = c.parts.advance(bytesSent, totalSent, totalExpected, retrying);
    if (step.partDone) sendUploadEvent(20007, Value::object());
    if (step.partBegun) sendUploadEvent(20005, {{"ui", c.uploadId}, {"pn", step.partNumber}, {"pr", retrying ? 1 : 0}});
    auto fileInfo = c.fileInfo.lock();
    // Read at each call: a host may switch reporting off while a file is under way.
    if (fileInfo && fileInfo->fileType == "video" && option(&VODUploadOptions::reportEnabled))
        VODInnerApi::reportUploadProgress(*fileInfo, step.ratio, c.parts.partSize(), step.partNumber, c.uploadId,
                                          c.videoId, c.uploadAddress, c.region, nullptr, serviceConfig_);
    if (c.retryResume && retry_.retrying()) {
        c.retryResume();
        retry_.reset();
    }
    if (c.progress) c.progress(c.file, static_cast<long>(totalSent), static_cast<long>(totalExpected));
}

void VODUploadEngine::onResumableUpload(const oss::OSSTask<oss::OSSResumableUploadResult>& task) {
    auto error = task.error();
    if (error) {
        vodLogDebug(kLogSource, "resumableUpload error: " + error->toString());
        if (restartGoneRecordedUpload(*error)) return;
    }
    onUploadEnded(error ? &*error : nullptr);
}

void VODUploadEngine::onUploadEnded(const Error* error) {
    if (error) {
        if (!isCancellation(*error)) {
            const Value params = {{"code", error->code}, {"message", error->description}};
            sendUploadEvent(20006, params);
            sendUploadEvent(20004, params);
        } else {
            sendUploadEvent(20008, Value::object());
        }
        handleUploadError(*error);
        return;
    }
    if (retry_.retrying()) {
        if (callback_ && callback_->retryResume) callback_->retryResume();
        retry_.reset();
    }
    vodLogDebug(kLogSource, "Upload file success");
    upload_->moveTo(VODFileUpload::Step::Succeeded);
    auto file = cur();
    if (file) {
        file->state = UploadFileState::Success;
        serviceConfig_.cache().clearObjectWithPath(file->filePath);
    }
    if (callback_ && callback_->success) callback_->success(file);
    if (callback_ && callback_->finish) {
        VodUploadResult result;
        result.videoId = upload_->curVideoId;
        result.imageUrl = upload_->curImageURL;
        if (file) {
            result.bucket = file->bucket;
            result.endpoint = file->endpoint;
        }
        callback_->finish(file, result);
    }
    uploadRequest_.reset();
    sendUploadEvent(20003, Value::object());
    next();
}

// An upload taken over from a record that the service no longer holds (aborted meanwhile, or expired)
// is not a failure of the file: the upload dropped its record, and a new one begins at once. Only
// once per recorded upload: the new one is this run's own.
bool VODUploadEngine::restartGoneRecordedUpload(const Error& error) {
    if (!upload_->uploadIdFromRecord || state_ != VODClientState::Started || error.code != -404 ||
        foundation::stringAt(error.userInfo, "Code") != std::string("NoSuchUpload"))
        return false;
    upload_->uploadIdFromRecord = false;
    const std::string why = "the service no longer has the upload " + upload_->uploadId.value_or("") +
                            " an earlier run began; starting a new upload";
    vodLogDebug(kLogSource, "Recorded upload gone: " + why);
    upload_->uploadId.reset();
    uploadRequest_.reset();
    if (callback_ && callback_->restarted) callback_->restarted(cur(), why);
    initMultiUpload();
    return true;
}

// The file's state is settled before the listener hears of it, so a host that looks at the queue
// from the callback (or polls it) sees the failure.
void VODUploadEngine::failCurrentFile(const std::string& code, const std::string& message) {
    const auto cur = this->cur();
    if (cur) cur->state = UploadFileState::Failure;
    upload_->moveTo(VODFileUpload::Step::Failed);
    setHalted(true);  // before the listener hears of it: a host may wait for the queue in the callback's wake
    if (callback_ && callback_->failure) callback_->failure(cur, code, message);
}

void VODUploadEngine::failCurrentFile(const Error& error) {
    auto code = foundation::stringAt(error.userInfo, "Code");
    auto message = foundation::stringAt(error.userInfo, "Message");
    failCurrentFile(code ? *code : std::to_string(error.code), message ? *message : error.description);
}

void VODUploadEngine::handleUploadError(const Error& error) {
    switch (classify(error, state_.load())) {
    case UploadErrorClass::Fail: {
        const bool initiating = upload_->step() == VODFileUpload::Step::Initiating;
        failCurrentFile(error);  // the queue waits on the failed file
        if (initiating) retry_.reset();
        return;
    }
    case UploadErrorClass::CredentialsExpired:
        vodLogDebug(kLogSource, "Token expire.");
        transitionTo(VODClientState::Paused);
        if (callback_ && callback_->expire) callback_->expire();
        return;
    case UploadErrorClass::Cancelled: {
        if (cur()) cur()->state = UploadFileState::Canceled;
        upload_->moveTo(VODFileUpload::Step::Cancelled);
        // Unless the host moved the queue on meanwhile.
        foundation::dispatch::main().async([weak = weak_from_this(), ticket = newRequest()] {
            if (auto self = weak.lock()) self->onAnswer(ticket, [](VODUploadEngine& c) { c.next(); });
        });
        return;
    }
    case UploadErrorClass::StoppedOrPaused:
        return;
    case UploadErrorClass::Retry:
        retryUploadStep(error);
    }
}

void VODUploadEngine::retryUploadStep(const Error& error) {
    if (state_ == VODClientState::Paused) return;
    const bool initiating = upload_->step() == VODFileUpload::Step::Initiating;
    if (initiating)
        vodLogDebug(kLogSource, "initMultiUpload Retry after 2 second....");
    else
        vodLogDebug(kLogSource, "resumableUpload Retry after 2 second...." +
                                    std::to_string(cur() ? static_cast<long>(cur()->state.load()) : 0L));
    const bool first = !retry_.retrying();
    if (retry_.decide(option(&VODUploadOptions::maxRetryCount)) == VODUploadRetryPolicy::Decision::GiveUp) {
        failCurrentFile(error);
        retry_.reset();
        return;
    }
    if (first && callback_ && callback_->retry) callback_->retry();
    if (callback_ && callback_->retrying)
        callback_->retrying({cur(), retry_.count(), option(&VODUploadOptions::maxRetryCount), oss::retryCause(error), retry_.wait(), false});
    // A timer on the queue, not a blocked thread: pause, stop and the caller's calls go on meanwhile,
    // and the state is read again when it fires. A resume or another file meanwhile has sent its own
    // request, and the timer then has nothing left to do.
    auto retry = [initiating](VODUploadEngine& c) {
        if (c.state_ == VODClientState::Paused) return;
        if (initiating)
            c.initMultiUpload();
        else
            c.resumableUpload();
    };
    retry_.schedule([weak = weak_from_this(), retry, ticket = newRequest()] {
        if (auto self = weak.lock())
            if (self->answers(ticket)) retry(*self);
    });
}

}  // namespace quorvane
