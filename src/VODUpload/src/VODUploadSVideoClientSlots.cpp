// The short-video client's requests to the video service (image slot, video slot, slot refresh) and
// the two engine runs (cover, video). Everything here runs on the client's queue.
#include "VODUpload/src/VODCreateUploadParams.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "VODUpload/src/VODUploadSVideoClient.h"
#include "VODUpload/src/VodInfo.h"

namespace quorvane {
namespace {

// (code, message) of a failed request: the service's own when the reply carries them.
std::pair<std::string, std::string> describe(const Error& error) {
    auto code = foundation::stringAt(error.userInfo, "Code");
    auto message = foundation::stringAt(error.userInfo, "Message");
    return {code ? *code : std::to_string(error.code), message ? *message : error.description};
}

}  // namespace

VODUploadSVideoClient::ReplyCallback VODUploadSVideoClient::replyHandler(SlotHandler handler) {
    return [weak = weak_from_this(), handler, job = jobId_](std::optional<foundation::HttpResponse>, Reply reply,
                                                            ReplyError error) {
        if (auto self = weak.lock())
            self->later([handler, job, reply = std::move(reply), error = std::move(error)](VODUploadSVideoClient& c) {
                (c.*handler)(reply, error, job);
            });
    };
}

bool VODUploadSVideoClient::handledAsStale(std::uint64_t job, const ReplyError& error, const char* what) {
    if (job == jobId_) return false;
    // The request of a job cancelled while it ran still ends in an error the host hears, unless
    // another job has begun since: that one is the host's now, and must not hear of the old.
    if (error && job == cancelledJob_ && jobId_ == job + 1) {
        const auto failure = describe(*error);
        tellDelegate([&](auto& d) { d.uploadFailedWithCode(failure.first, failure.second); });
    } else {
        dropStale(what);
    }
    return true;
}

void VODUploadSVideoClient::tellSlotFailure(const std::pair<std::string, std::string>& failure) {
    tellDelegate([&](auto& d) {
        if (failure.first == VODOpenApiTokenExpired)
            d.uploadTokenExpired();
        else
            d.uploadFailedWithCode(failure.first, failure.second);
    });
}

void VODUploadSVideoClient::storeSlot(const Value& reply) {
    job_.curRequestId = foundation::stringAt(reply, "RequestId");
    job_.curAddress = foundation::stringAt(reply, "UploadAddress");
    job_.curAuth = foundation::stringAt(reply, "UploadAuth");
}

void VODUploadSVideoClient::createUploadImage() {
    if (!job_.imagePath) {
        // Status stays uploading and step 0: only cancel clears this.
        vodLogDebug(kLogSource, "imagePath must not be nil!");
        return;
    }
    setStep(Step::ImageSlotRequested);
    VODCreateImageFields fields;
    fields.imagePath = *job_.imagePath;
    if (job_.svideoInfo) {
        fields.storageLocation = job_.svideoInfo->storageLocation;
        fields.userData = job_.svideoInfo->userData;
    }
    fields.appId = appId();
    curTask_ = VODOpenApi::createUploadImage(job_.accessKeyId, job_.accessKeySecret, job_.accessToken, "cover",
                                             region(), createUploadImageParams(fields),
                                             replyHandler(&VODUploadSVideoClient::onImageSlot), serviceConfig());
}

void VODUploadSVideoClient::onImageSlot(const Reply& reply, const ReplyError& error, std::uint64_t job) {
    if (handledAsStale(job, error, "image slot reply")) return;
    setStep(Step::ImageSlotReceived);
    if (error) {
        setStepAndStatus(Step::Idle, kStatusIdle);
        const auto failure = describe(*error);
        vodLogDebug(kLogSource,
                    "svideo client createUploadImage failed code:" + failure.first + " desc:" + failure.second);
        tellSlotFailure(failure);
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlot(answer);
    job_.curImageURL = foundation::stringAt(answer, "ImageURL");
    vodLogDebug(kLogSource, "svideo client createUploadImage success imageurl:" + job_.curImageURL.value_or(""));
    if (status_ != kStatusPaused) uploadImage();
}

void VODUploadSVideoClient::uploadImage() {
    setStep(Step::CoverUploading);
    auto info = std::make_shared<VodInfo>();
    info->title = vodLastPathComponent(job_.imagePath.value_or(""));
    if (job_.svideoInfo) info->userData = job_.svideoInfo->userData;
    runEngine(job_.imagePath.value_or(""), std::move(info));
}

void VODUploadSVideoClient::createUploadVideo() {
    setStep(Step::VideoSlotRequested);
    if (!job_.svideoInfo || !job_.svideoInfo->title) {
        vodLogDebug(kLogSource, "title must not be nil!");
        return;
    }
    const VodSVideoInfo& info = *job_.svideoInfo;
    VODCreateUploadFields fields;
    fields.coverUrl = job_.curImageURL;
    fields.fileSize = std::to_string(job_.videoFileSize);
    fields.description = info.desc;
    fields.cateId = info.cateId;
    fields.tags = info.tags;
    fields.storageLocation = info.storageLocation;
    fields.templateGroupId = info.templateGroupId;
    fields.emptyTemplateGroupIsNone = false;
    fields.transcode = transcode();
    fields.appId = appId();
    fields.workflowId = workflowId();
    fields.userData = userDataFor(job_.videoPath, info.userData);

    auto handler = replyHandler(&VODUploadSVideoClient::onVideoSlot);
    const std::string remembered = serviceConfig().cache().rememberedVideoId(job_.videoPath);
    if (!remembered.empty()) {
        job_.curVideoId = remembered;
        curTask_ = VODOpenApi::refreshUploadVideo(job_.accessKeyId, job_.accessKeySecret, job_.accessToken,
                                                  remembered, region(), std::move(handler), serviceConfig());
    } else {
        // The whole local path goes as the file name.
        curTask_ = VODOpenApi::createUploadVideo(job_.accessKeyId, job_.accessKeySecret, job_.accessToken, *info.title,
                                                 job_.videoPath, region(), createUploadVideoParams(fields),
                                                 std::move(handler), serviceConfig());
    }
}

void VODUploadSVideoClient::onVideoSlot(const Reply& reply, const ReplyError& error, std::uint64_t job) {
    if (handledAsStale(job, error, "video slot reply")) return;
    setStep(Step::VideoSlotReceived);
    if (error) {
        const auto failure = describe(*error);
        setStepAndStatus(failure.first == VODOpenApiTokenExpired ? Step::CoverUploaded : Step::Idle, kStatusIdle);
        vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo failed code:" + failure.first +
                                    " desc:" + failure.second);
        if (failure.first == VODOpenApiVideoNotFound) {
            // The remembered video is gone: ask for a new one at once.
            serviceConfig().cache().clearObjectWithPath(job_.videoPath);
            return createUploadVideo();
        }
        tellSlotFailure(failure);
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlot(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) job_.curVideoId = videoId;
    const std::string videoId = job_.curVideoId.value_or("");
    vodLogDebug(kLogSource, "svideo client createOrRefreshUploadVideo success videoid:" + videoId);
    serviceConfig().cache().rememberVideoId(job_.videoPath, videoId);
    if (status_ != kStatusPaused) uploadVideo();
}

void VODUploadSVideoClient::uploadVideo() {
    setStep(Step::VideoUploading);
    auto info = std::make_shared<VodInfo>();
    if (const auto& svideo = job_.svideoInfo) {
        info->title = svideo->title;
        info->tags = svideo->tags;
        info->desc = svideo->desc;
        info->cateId = svideo->cateId;
        info->isProcess = svideo->isProcess;
        info->isShowWaterMark = svideo->isShowWaterMark;
        if (svideo->priority) info->setPriority(*svideo->priority);
        info->userData = userDataFor(job_.videoPath, svideo->userData);
    }
    info->coverUrl = job_.curImageURL;
    runEngine(job_.videoPath, std::move(info));
}

void VODUploadSVideoClient::refreshUploadVideo() {
    setStep(Step::VideoUploading);
    curTask_ = VODOpenApi::refreshUploadVideo(job_.accessKeyId, job_.accessKeySecret, job_.accessToken,
                                              job_.curVideoId.value_or(""), region(),
                                              replyHandler(&VODUploadSVideoClient::onRefreshedSlot), serviceConfig());
}

void VODUploadSVideoClient::onRefreshedSlot(const Reply& reply, const ReplyError& error, std::uint64_t job) {
    if (handledAsStale(job, error, "slot refresh reply")) return;
    if (error) {
        const auto failure = describe(*error);
        const bool expired = failure.first == VODOpenApiTokenExpired;
        setStepAndStatus(expired ? Step::VideoUploading : Step::Idle, kStatusIdle);
        if (!expired) runFile_.reset();  // the job is over: what the engine still says is an earlier job's
        vodLogDebug(kLogSource,
                    "svideo client refreshUploadVideo failed code:" + failure.first + " desc:" + failure.second);
        tellSlotFailure(failure);
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    storeSlot(answer);
    if (auto videoId = foundation::stringAt(answer, "VideoId")) job_.curVideoId = videoId;
    if (status_ != kStatusPaused) resumeEngine();
}

std::optional<std::string> VODUploadSVideoClient::userDataWithCreateUploadVideoUserData(
    const std::optional<std::string>& userData) {
    return serially([&] { return userDataFor(job_.videoPath, userData); });
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
