// The short-video client's requests to the video service (image slot, video slot, slot refresh) and
// the two engine runs (cover, video).
#include <cctype>
#include <chrono>

#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODUploadSVideoClient.h"
#include "VODUpload/src/VodInfo.h"

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

// The engine reports a finished file before its worker moves the queue on; the queue is only
// changed once that worker left Started, so it is not changed under it.
constexpr std::chrono::seconds kEngineSettleTimeout{2};

}  // namespace

void VODUploadSVideoClient::createUploadImage() {
    if (!imagePath_) {
        // Status stays uploading and step 0: only cancel clears this.
        vodLogDebug(kLogSource, "imagePath must not be nil!");
        return;
    }
    Value params = Value::object();
    params["ImageExt"] = lowerCase(vodPathExtension(*imagePath_));
    if (svideoInfo_) putIfPresent(params, "StorageLocation", svideoInfo_->storageLocation);
    if (nonEmpty(appId_)) params["AppId"] = *appId_;
    if (svideoInfo_) putIfPresent(params, "UserData", svideoInfo_->userData);
    setStep(1);
    const std::uint64_t issued = generation();
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    setCurTask(VODOpenApi::createUploadImage(accessKeyId_, accessKeySecret_, accessToken_, "cover", region_, params,
                                             [weak, issued](std::optional<foundation::HttpResponse>,
                                                            std::optional<Value> reply, std::optional<Error> error) {
                                                 if (auto self = weak.lock()) self->onImageSlot(reply, error, issued);
                                             }),
               issued);
}

void VODUploadSVideoClient::onImageSlot(const std::optional<Value>& reply, const std::optional<Error>& error,
                                        std::uint64_t issued) {
    setStep(2);
    if (error) {
        setStepAndStatus(0, kStatusIdle);
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
    storeSlot(answer);
    curImageURL_ = foundation::stringAt(answer, "ImageURL");
    vodLogDebug(kLogSource, "svideo client createUploadImage success imageurl:" + curImageURL_.value_or(""));
    if (status() != kStatusPaused && generation() == issued) uploadImage();
}

void VODUploadSVideoClient::storeSlot(const Value& reply) {
    curRequestId_ = foundation::stringAt(reply, "RequestId");
    curAddress_ = foundation::stringAt(reply, "UploadAddress");
    curAuth_ = foundation::stringAt(reply, "UploadAuth");
}

void VODUploadSVideoClient::uploadImage() {
    setStep(3);
    auto info = std::make_shared<VodInfo>();
    info->title = vodLastPathComponent(imagePath_.value_or(""));
    if (svideoInfo_) info->userData = svideoInfo_->userData;
    runEngine(imagePath_.value_or(""), std::move(info));
}

void VODUploadSVideoClient::runEngine(const std::string& path, std::shared_ptr<VodInfo> info) {
    bool halted = false;
    {
        std::lock_guard guard(lock_);
        std::swap(halted, engineHalted_);
    }
    if (halted || !client_->waitUntilSettled(kEngineSettleTimeout)) client_->stop();
    client_->clearFiles();
    client_->addFile(path, std::move(info));
    client_->start();
}

void VODUploadSVideoClient::createUploadVideo() {
    setStep(5);
    const std::uint64_t issued = generation();  // before the media probe, which takes a while
    if (!svideoInfo_ || !svideoInfo_->title) {
        vodLogDebug(kLogSource, "title must not be nil!");
        return;
    }
    const VodSVideoInfo& info = *svideoInfo_;
    Value params = Value::object();
    putIfPresent(params, "CoverURL", curImageURL_);
    params["FileSize"] = std::to_string(videoFileSize_);
    putIfPresent(params, "Description", info.desc);
    if (info.cateId) params["CateId"] = std::to_string(*info.cateId);
    putIfPresent(params, "Tags", info.tags);
    putIfPresent(params, "StorageLocation", info.storageLocation);
    putIfPresent(params, "TemplateGroupId", info.templateGroupId);
    if (!transcode_ && !info.templateGroupId) params["TranscodeMode"] = "NoTranscode";
    if (nonEmpty(appId_)) params["AppId"] = *appId_;
    if (nonEmpty(workflowId_)) params["WorkflowId"] = *workflowId_;
    if (auto userData = userDataWithCreateUploadVideoUserData(info.userData)) params["UserData"] = *userData;

    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    auto handler = [weak, issued](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                                  std::optional<Error> error) {
        if (auto self = weak.lock()) self->onVideoSlot(reply, error, issued);
    };
    // The whole local path goes as the file name.
    auto record = VODObjectCache::sharedCache().getObjectWithPath(videoPath_);
    if (record && !record->videoId.empty()) {
        curVideoId_ = record->videoId;
        setCurTask(VODOpenApi::refreshUploadVideo(accessKeyId_, accessKeySecret_, accessToken_, record->videoId,
                                                  region_, handler),
                   issued);
    } else {
        setCurTask(VODOpenApi::createUploadVideo(accessKeyId_, accessKeySecret_, accessToken_, *info.title,
                                                 videoPath_, region_, params, handler),
                   issued);
    }
}

void VODUploadSVideoClient::onVideoSlot(const std::optional<Value>& reply, const std::optional<Error>& error,
                                        std::uint64_t issued) {
    setStep(6);
    if (error) {
        setStepAndStatus(0, kStatusIdle);
        const auto [code, message] = describe(*error);
        vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo failed code:" + code + " desc:" + message);
        if (code == VODOpenApiTokenExpired) {
            setStep(4);
            if (auto delegate = this->delegate()) delegate->uploadTokenExpired();
        } else if (code == VODOpenApiVideoNotFound) {
            // The remembered video is gone: ask for a new one at once.
            VODObjectCache::sharedCache().clearObjectWithPath(videoPath_);
            createUploadVideo();
        } else if (auto delegate = this->delegate()) {
            delegate->uploadFailedWithCode(code, message);
        }
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlot(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) curVideoId_ = videoId;
    vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo success videoid:" + curVideoId_.value_or(""));
    auto& cache = VODObjectCache::sharedCache();
    auto record = cache.getObjectWithPath(videoPath_);
    if (record && record->videoId.empty()) {
        record->videoId = curVideoId_.value_or("");
        cache.saveObject(record, videoPath_);
    }
    if (status() != kStatusPaused && generation() == issued) uploadVideo();
}

void VODUploadSVideoClient::uploadVideo() {
    setStep(7);
    auto info = std::make_shared<VodInfo>();
    if (svideoInfo_) {
        info->title = svideoInfo_->title;
        info->tags = svideoInfo_->tags;
        info->desc = svideoInfo_->desc;
        info->cateId = svideoInfo_->cateId;
        info->isProcess = svideoInfo_->isProcess;
        info->isShowWaterMark = svideoInfo_->isShowWaterMark;
        if (svideoInfo_->priority) info->setPriority(*svideoInfo_->priority);
        info->userData = userDataWithCreateUploadVideoUserData(svideoInfo_->userData);
    }
    info->coverUrl = curImageURL_;
    runEngine(videoPath_, std::move(info));
}

void VODUploadSVideoClient::refreshUploadVideo() {
    setStep(7);
    const std::uint64_t issued = generation();
    std::weak_ptr<VODUploadSVideoClient> weak = weak_from_this();
    setCurTask(VODOpenApi::refreshUploadVideo(
                   accessKeyId_, accessKeySecret_, accessToken_, curVideoId_.value_or(""), region_,
                   [weak](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                          std::optional<Error> error) {
                       if (auto self = weak.lock()) self->onRefreshedSlot(reply, error);
                   }),
               issued);
}

void VODUploadSVideoClient::onRefreshedSlot(const std::optional<Value>& reply, const std::optional<Error>& error) {
    if (error) {
        setStepAndStatus(0, kStatusIdle);
        const auto [code, message] = describe(*error);
        vodLogDebug(kLogSource, "svideo client refreshUploadVideo failed code:" + code + " desc:" + message);
        auto delegate = this->delegate();
        if (code == VODOpenApiTokenExpired) {
            setStep(7);
            if (delegate) delegate->uploadTokenExpired();
        } else if (delegate) {
            delegate->uploadFailedWithCode(code, message);
        }
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlot(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) curVideoId_ = videoId;
    if (status() != kStatusPaused) client_->resumeWithAuth(curAuth_.value_or(""));
}

std::optional<std::string> VODUploadSVideoClient::userDataWithCreateUploadVideoUserData(
    const std::optional<std::string>& userData) {
    // The engine adds the media facts; this client marks the upload as a short video.
    auto withFacts = client_->userDataWithVideoPath(videoPath_, userData);
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
