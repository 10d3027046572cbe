// Create-upload requests: registering the current file with the video service (a video, refreshed
// when the resume cache remembers its id, or an image), the media facts added to the user data, and
// the start event sent before each multipart upload.
#include <charconv>
#include <cstdio>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "VODUpload/src/VODCreateUploadParams.h"
#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {
namespace {

std::string fixed2(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

// The shortest decimal text of a floating-point number: 1920.0 -> "1920".
std::string numberText(double value) {
    char text[64];
    auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

}  // namespace

void VODUploadEngine::createUploadVideo() {
    serially([&] {
        const auto cur = this->cur();
        if (!cur) return;
        upload_->moveTo(VODFileUpload::Step::Registering);
        const auto info = cur->vodInfo;
        VODCreateUploadFields fields;
        if (upload_->innerFileInfo) fields.fileSize = upload_->innerFileInfo->fileSize;
        if (info) {
            fields.coverUrl = info->coverUrl;
            fields.description = info->desc;
            fields.cateId = info->cateId;
            fields.tags = info->tags;
            fields.storageLocation = info->storageLocation;
            fields.templateGroupId = info->templateGroupId;
        }
        const auto options = this->options();
        fields.transcode = options.transcode;
        fields.appId = options.appId;
        fields.workflowId = options.workflowId;
        fields.userData = userDataWithVideoPath(cur->filePath, info ? info->userData : std::nullopt);
        const Value params = createUploadVideoParams(fields);

        std::weak_ptr<VODUploadEngine> weak = weak_from_this();
        const OSSConfig credentials = credentialsOf(ossConfig_);
        createOrRefreshUploadVideoWithKeyId(
            credentials.accessKeyId.value_or(""), credentials.accessKeySecret.value_or(""),
            credentials.secretToken.value_or(""), info ? info->title.value_or("") : std::string(), cur->filePath, params,
            [weak, ticket = newRequest()](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                                          std::optional<Error> error) {
                if (auto self = weak.lock())
                    self->onAnswer(ticket, [reply, error](VODUploadEngine& c) { c.onCreateAnswer(reply, error, false); });
            });
    });
}

std::shared_ptr<foundation::HttpTask> VODUploadEngine::createOrRefreshUploadVideoWithKeyId(
    const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
    const std::string& fileName, const Value& optionalParams, VODOpenApiCompletionHandler completionHandler) {
    return serially([&] {
        const std::string remembered = serviceConfig_.cache().rememberedVideoId(fileName);
        if (!remembered.empty()) {
            upload_->curVideoId = remembered;
            return VODOpenApi::refreshUploadVideo(keyId, keySecret, token, remembered,
                                                  option(&VODUploadOptions::region), std::move(completionHandler),
                                                  serviceConfig_);
        }
        return VODOpenApi::createUploadVideo(keyId, keySecret, token, title, fileName, option(&VODUploadOptions::region), optionalParams,
                                             std::move(completionHandler), serviceConfig_);
    });
}

void VODUploadEngine::createUploadImage() {
    serially([&] {
        const auto cur = this->cur();
        if (!cur) return;
        upload_->moveTo(VODFileUpload::Step::Registering);
        const auto info = cur->vodInfo;
        VODCreateImageFields fields;
        fields.imagePath = cur->filePath;
        if (info) {
            fields.title = info->title;
            fields.description = info->desc;
            fields.cateId = info->cateId;
            fields.tags = info->tags;
            fields.storageLocation = info->storageLocation;
            fields.userData = info->userData;
        }
        const auto options = this->options();
        fields.appId = options.appId;
        const Value params = createUploadImageParams(fields);
        const std::string imageType = info ? info->imageType.value_or("") : std::string("cover");

        std::weak_ptr<VODUploadEngine> weak = weak_from_this();
        const OSSConfig credentials = credentialsOf(ossConfig_);
        VODOpenApi::createUploadImage(
            credentials.accessKeyId.value_or(""), credentials.accessKeySecret.value_or(""),
            credentials.secretToken.value_or(""), imageType, options.region, params,
            [weak, ticket = newRequest()](std::optional<foundation::HttpResponse>, std::optional<Value> reply,
                                          std::optional<Error> error) {
                if (auto self = weak.lock())
                    self->onAnswer(ticket, [reply, error](VODUploadEngine& c) { c.onCreateAnswer(reply, error, true); });
            },
            serviceConfig_);
    });
}

void VODUploadEngine::onCreateAnswer(const std::optional<Value>& reply, const std::optional<Error>& error,
                                     bool image) {
    const auto cur = this->cur();
    if (!cur) return;
    if (error) {
        auto serviceCode = foundation::stringAt(error->userInfo, "Code");
        auto serviceMessage = foundation::stringAt(error->userInfo, "Message");
        const std::string code = serviceCode ? *serviceCode : std::to_string(error->code);
        const std::string message = serviceMessage ? *serviceMessage : error->description;
        sendUploadEvent(20004, {{"code", code}, {"message", message}});
        if (serviceCode && *serviceCode == VODOpenApiTokenExpired) {
            transitionTo(VODClientState::Paused);
            if (callback_ && callback_->expire) callback_->expire();
        } else if (!image && serviceCode && *serviceCode == VODOpenApiVideoNotFound) {
            // The remembered video is gone on the service side: register the file afresh.
            serviceConfig_.cache().clearObjectWithPath(cur->filePath);
            createUploadVideo();
        } else {
            failCurrentFile(code, message);  // the queue waits on the failed file
        }
        return;
    }
    const Value answer = reply ? *reply : Value::object();
    const std::string address = foundation::stringAt(answer, "UploadAddress").value_or("");
    const std::string auth = foundation::stringAt(answer, "UploadAuth").value_or("");
    if (image) {
        upload_->curImageURL = foundation::stringAt(answer, "ImageURL");
    } else {
        if (auto videoId = foundation::stringAt(answer, "VideoId")) upload_->curVideoId = videoId;
        serviceConfig_.cache().rememberVideoId(cur->filePath, upload_->curVideoId.value_or(""));
    }
    continueWithIssuedAuth(address, auth);
}

// The service's answer carries the file's address and the credentials to upload it with.
void VODUploadEngine::continueWithIssuedAuth(const std::string& uploadAddress, const std::string& uploadAuth) {
    const auto cur = this->cur();
    auto issued = std::make_shared<OSSConfig>();
    bool refreshing;
    {
        std::lock_guard lock(*credentialsMutex_);
        refreshing = openApiConfig_ != nullptr;  // new credentials for an upload under way
        openApiConfig_ = issued;
    }
    parseUploadAddress(uploadAddress, cur);
    parseUploadAuth(uploadAuth, *issued);
    makeOSSClient();
    if (refreshing)
        resumableUpload();
    else
        initMultiUpload();
}

std::optional<std::string> VODUploadEngine::userDataWithVideoPath(const std::string& videoPath,
                                                                  const std::optional<std::string>& userData) {
    Value dict = Value::object();
    if (userData) {
        auto parsed = foundation::parseJson(*userData);
        if (parsed && parsed->is_object()) dict.update(*parsed);
    }
    const AVCVSize size = AVCVAssetInfo::AVCVNaturalSize(videoPath);
    dict["Duration"] = fixed2(AVCVAssetInfo::AVCVDuration(videoPath));
    dict["Bitrate"] = fixed2(AVCVAssetInfo::AVCVBitrate(videoPath) / 1024);
    dict["Fps"] = fixed2(AVCVAssetInfo::AVCVFrameRate(videoPath));
    dict["Width"] = numberText(size.width);
    dict["Height"] = numberText(size.height);
    try {
        return foundation::toJsonText(dict);
    } catch (const std::exception&) {
        return std::nullopt;  // text that is not UTF-8
    }
}

void VODUploadEngine::sendStartEvent() {
    serially([&] {
        const auto cur = this->cur();
        if (!cur) return;
        const AVCVSize size = AVCVAssetInfo::AVCVNaturalSize(cur->filePath);
        std::int64_t fileSize = 0;
        std::string type, hash;
        if (upload_->innerFileInfo) {
            std::from_chars(upload_->innerFileInfo->fileSize.data(),
                            upload_->innerFileInfo->fileSize.data() + upload_->innerFileInfo->fileSize.size(), fileSize);
            type = upload_->innerFileInfo->fileType;
            hash = upload_->innerFileInfo->fileHash;
        }
        sendUploadEvent(20002, {{"ft", type},
                                {"fs", fileSize},
                                {"fw", size.width},
                                {"fh", size.height},
                                {"fm", hash},
                                {"ps", option(&VODUploadOptions::uploadPartSize)},
                                {"bu", cur->bucket.value_or("")},
                                {"ok", cur->object.value_or("")}});
    });
}

}  // namespace quorvane
