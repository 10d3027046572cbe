// The short-video client's requests to the video service (image slot, video slot, slot refresh) and
// the two engine runs (cover, video).
#include <cctype>
#include <chrono>

#include "VODUpload/src/VODCreateUploadParams.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODUploadSVideoClient.h"
#include "VODUpload/src/VodInfo.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

bool nonEmpty(const std::optional<std::string>& text) { return text && !text->empty(); }

void putIfPresent(Value& params, const char* key, const std::optional<std::string>& value) {
    if (value) params[key] = *value;
}

std::string lowerCase(std::string text) {
    for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// (code, message) of a failed request: the service's own when the reply carries them.
std::pair<std::string, std::string> describe(const Error& error) {
    auto code = foundation::stringAt(error.userInfo, "Code");
    auto message = foundation::stringAt(error.userInfo, "Message");
    return {code ? *code : std::to_string(error.code), message ? *message : error.description};
}

// The engine reports a finished file before its worker moves the queue on, and a run cancelled by
// cancel stays Started until its request has reported; the queue is only changed once the engine
// left Started, so it is not changed under it.
constexpr std::chrono::seconds kEngineSettleTimeout{2};

}  // namespace

void VODUploadSVideoClient::createUploadImage(std::uint64_t job) {
    Job current;
    {
        std::unique_lock guard(lock_);
        if (job != job_.generation) {
            guard.unlock();
            dropStale("image slot request");
            return;
        }
        if (!job_.imagePath) {
            // Status stays uploading and step 0: only cancel clears this.
            guard.unlock();
            vodLogDebug(kLogSource, "imagePath must not be nil!");
            return;
        }
        step_ = 1;
        current = job_;
    }
    Value params = Value::object();
    params["ImageExt"] = lowerCase(vodPathExtension(*current.imagePath));
    if (current.svideoInfo) putIfPresent(params, "StorageLocation", current.svideoInfo->storageLocation);
    if (nonEmpty(appId_)) params["AppId"] = *appId_;
    if (current.svideoInfo) putIfPresent(params, "UserData", current.svideoInfo->userData);
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    setCurTask(VODOpenApi::createUploadImage(current.accessKeyId, current.accessKeySecret, current.accessToken,
                                             "cover", region_, params,
                                             [weak, job](std::optional<foundation::HttpResponse>,
                                                         std::optional<Value> reply, std::optional<Error> error) {
                                                 if (auto self = weak.lock()) self->onImageSlot(reply, error, job);
                                             },
                                             serviceConfig()),
               job);
}

void VODUploadSVideoClient::onImageSlot(const std::optional<Value>& reply, const std::optional<Error>& error,
                                        std::uint64_t job) {
    std::unique_lock guard(lock_);
    if (handledAsStale(guard, job, error, "image slot reply")) return;
    step_ = 2;
    if (error) {
        step_ = 0;
        status_ = kStatusIdle;
        guard.unlock();
        const auto [code, message] = describe(*error);
        vodLogDebug(kLogSource, "svideo client createUploadImage failed code:" + code + " desc:" + message);
        auto delegate = this->delegate();
        if (!delegate) return;
        if (code == VODOpenApiTokenExpired)
            delegate->uploadTokenExpired();
        else
            delegate->uploadFailedWithCode(code, message);
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlotLocked(answer);
    job_.curImageURL = foundation::stringAt(answer, "ImageURL");
    const std::string imageURL = job_.curImageURL.value_or("");
    const bool paused = status_ == kStatusPaused;
    guard.unlock();
    vodLogDebug(kLogSource, "svideo client createUploadImage success imageurl:" + imageURL);
    if (!paused) uploadImage(job);
}

bool VODUploadSVideoClient::handledAsStale(std::unique_lock<std::mutex>& guard, std::uint64_t job,
                                           const std::optional<Error>& error, const char* what) {
    if (job == job_.generation) return false;
    const bool lastCancelled = job == job_.cancelled && job_.generation == job + 1;
    guard.unlock();
    // The request of a job cancelled while it ran still ends in an error the host hears, unless
    // another job has begun since: that one is the host's now, and must not hear of the old.
    if (error && lastCancelled) {
        const auto [code, message] = describe(*error);
        if (auto delegate = this->delegate()) delegate->uploadFailedWithCode(code, message);
    } else {
        dropStale(what);
    }
    return true;
}

void VODUploadSVideoClient::storeSlotLocked(const Value& reply) {
    job_.curRequestId = foundation::stringAt(reply, "RequestId");
    job_.curAddress = foundation::stringAt(reply, "UploadAddress");
    job_.curAuth = foundation::stringAt(reply, "UploadAuth");
}

void VODUploadSVideoClient::uploadImage(std::uint64_t job) {
    const auto current = advance(job, 3);
    if (!current) return;
    auto info = std::make_shared<VodInfo>();
    info->title = vodLastPathComponent(current->imagePath.value_or(""));
    if (current->svideoInfo) info->userData = current->svideoInfo->userData;
    runEngine(job, current->imagePath.value_or(""), std::move(info));
}

void VODUploadSVideoClient::runEngine(std::uint64_t job, const std::string& path, std::shared_ptr<VodInfo> info) {
    bool halted = false;
    {
        std::lock_guard guard(lock_);
        if (job != job_.generation) return;
        job_.engineFile = info;  // from here on the engine's callbacks about this file are the job's
        std::swap(halted, engineHalted_);
    }
    if (halted || !client_->waitUntilSettled(kEngineSettleTimeout)) client_->stop();
    client_->clearFiles();
    client_->addFile(path, std::move(info));
    client_->start();
    // A cancel that came while the queue was being set up may have cleared it before the file went in.
    if (!isCurrent(job)) client_->clearFiles();
}

void VODUploadSVideoClient::createUploadVideo(std::uint64_t job) {
    const auto current = advance(job, 5);
    if (!current) return;
    if (!current->svideoInfo || !current->svideoInfo->title) {
        vodLogDebug(kLogSource, "title must not be nil!");
        return;
    }
    const VodSVideoInfo& info = *current->svideoInfo;
    VODCreateUploadFields fields;
    fields.coverUrl = current->curImageURL;
    fields.fileSize = std::to_string(current->videoFileSize);
    fields.description = info.desc;
    fields.cateId = info.cateId;
    fields.tags = info.tags;
    fields.storageLocation = info.storageLocation;
    fields.templateGroupId = info.templateGroupId;
    fields.emptyTemplateGroupIsNone = false;
    fields.transcode = transcode_;
    fields.appId = appId_;
    fields.workflowId = workflowId_;
    fields.userData = userDataFor(current->videoPath, info.userData);
    const Value params = createUploadVideoParams(fields);

    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    auto handler = [weak, job](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                               std::optional<Error> error) {
        if (auto self = weak.lock()) self->onVideoSlot(reply, error, job);
    };
    // The whole local path goes as the file name.
    auto record = VODObjectCache::sharedCache().getObjectWithPath(current->videoPath);
    if (record && !record->videoId.empty()) {
        {
            std::lock_guard guard(lock_);
            if (job != job_.generation) return;
            job_.curVideoId = record->videoId;
        }
        setCurTask(VODOpenApi::refreshUploadVideo(current->accessKeyId, current->accessKeySecret,
                                                  current->accessToken, record->videoId, region_, handler,
                                                  serviceConfig()),
                   job);
    } else {
        setCurTask(VODOpenApi::createUploadVideo(current->accessKeyId, current->accessKeySecret, current->accessToken,
                                                 *info.title, current->videoPath, region_, params, handler,
                                                 serviceConfig()),
                   job);
    }
}

void VODUploadSVideoClient::onVideoSlot(const std::optional<Value>& reply, const std::optional<Error>& error,
                                        std::uint64_t job) {
    std::unique_lock guard(lock_);
    if (handledAsStale(guard, job, error, "video slot reply")) return;
    step_ = 6;
    const std::string videoPath = job_.videoPath;
    if (error) {
        const auto [code, message] = describe(*error);
        step_ = code == VODOpenApiTokenExpired ? 4 : 0;
        status_ = kStatusIdle;
        guard.unlock();
        vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo failed code:" + code + " desc:" + message);
        if (code == VODOpenApiTokenExpired) {
            if (auto delegate = this->delegate()) delegate->uploadTokenExpired();
        } else if (code == VODOpenApiVideoNotFound) {
            // The remembered video is gone: ask for a new one at once.
            VODObjectCache::sharedCache().clearObjectWithPath(videoPath);
            createUploadVideo(job);
        } else if (auto delegate = this->delegate()) {
            delegate->uploadFailedWithCode(code, message);
        }
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlotLocked(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) job_.curVideoId = videoId;
    const std::string videoId = job_.curVideoId.value_or("");
    const bool paused = status_ == kStatusPaused;
    guard.unlock();
    vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo success videoid:" + videoId);
    auto& cache = VODObjectCache::sharedCache();
    auto record = cache.getObjectWithPath(videoPath);
    if (record && record->videoId.empty()) {
        record->videoId = videoId;
        cache.saveObject(record, videoPath);
    }
    if (!paused) uploadVideo(job);
}

void VODUploadSVideoClient::uploadVideo(std::uint64_t job) {
    const auto current = advance(job, 7);
    if (!current) return;
    auto info = std::make_shared<VodInfo>();
    if (const auto& svideo = current->svideoInfo) {
        info->title = svideo->title;
        info->tags = svideo->tags;
        info->desc = svideo->desc;
        info->cateId = svideo->cateId;
        info->isProcess = svideo->isProcess;
        info->isShowWaterMark = svideo->isShowWaterMark;
        if (svideo->priority) info->setPriority(*svideo->priority);
        info->userData = userDataFor(current->videoPath, svideo->userData);
    }
    info->coverUrl = current->curImageURL;
    runEngine(job, current->videoPath, std::move(info));
}

void VODUploadSVideoClient::refreshUploadVideo(std::uint64_t job) {
    const auto current = advance(job, 7);
    if (!current) return;
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    setCurTask(VODOpenApi::refreshUploadVideo(
                   current->accessKeyId, current->accessKeySecret, current->accessToken,
                   current->curVideoId.value_or(""), region_,
                   [weak, job](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                               std::optional<Error> error) {
                       if (auto self = weak.lock()) self->onRefreshedSlot(reply, error, job);
                   },
                   serviceConfig()),
               job);
}

void VODUploadSVideoClient::onRefreshedSlot(const std::optional<Value>& reply, const std::optional<Error>& error,
                                            std::uint64_t job) {
    std::unique_lock guard(lock_);
    if (handledAsStale(guard, job, error, "slot refresh reply")) return;
    if (error) {
        const auto [code, message] = describe(*error);
        step_ = code == VODOpenApiTokenExpired ? 7 : 0;
        status_ = kStatusIdle;
        guard.unlock();
        vodLogDebug(kLogSource, "svideo client refreshUploadVideo failed code:" + code + " desc:" + message);
        auto delegate = this->delegate();
        if (!delegate) return;
        if (code == VODOpenApiTokenExpired)
            delegate->uploadTokenExpired();
        else
            delegate->uploadFailedWithCode(code, message);
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlotLocked(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) job_.curVideoId = videoId;
    const std::string auth = job_.curAuth.value_or("");
    const bool paused = status_ == kStatusPaused;
    guard.unlock();
    if (!paused) client_->resumeWithAuth(auth);
}

std::optional<std::string> VODUploadSVideoClient::userDataWithCreateUploadVideoUserData(
    const std::optional<std::string>& userData) {
    std::string videoPath;
    {
        std::lock_guard guard(lock_);
        videoPath = job_.videoPath;
    }
    return userDataFor(videoPath, userData);
}

std::optional<std::string> VODUploadSVideoClient::userDataFor(const std::string& videoPath,
                                                              const std::optional<std::string>& userData) {
    // The engine adds the media facts; this client marks the upload as a short video.
    auto withFacts = VODUploadClientInternals::engine(*client_).userDataWithVideoPath(videoPath, userData);
    if (!withFacts) return std::nullopt;
    auto dict = foundation::parseJson(*withFacts);
    if (!dict || !dict->is_object()) return std::nullopt;
    (*dict)["Source"] = "short_video";
    try {
        return dict->dump();
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace quorvane
