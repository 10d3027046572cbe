// The tool's construction and the listener it installs on its upload engine.
#include "upload_bridge/ApiOSSUploadTool.h"

#include "VODUpload/src/VODUploadClient.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/sandbox_paths.h"
#include "upload_bridge/QuorvaneErrors.h"

namespace quorvane {
namespace {

std::string describe(const std::shared_ptr<UploadFileInfo>& file) {
    return file ? file->filePath : "(null)";
}

}  // namespace

std::string ApiOSSUploadTool::hostNameOf(std::string host) {
    if (auto scheme = host.find("://"); scheme != std::string::npos) host.erase(0, scheme + 3);
    if (auto path = host.find('/'); path != std::string::npos) host.erase(path);
    if (auto port = host.rfind(':'); port != std::string::npos && host.find(']') == std::string::npos) host.erase(port);
    return host;
}

std::string ApiOSSUploadTool::getfilePathFromSandboxTmpWithMiddleDir(const std::string& middleDir,
                                                                     const std::string& fileName) {
    return foundation::sandboxTempFilePath(middleDir, fileName);
}

std::shared_ptr<ApiOSSUploadTool> ApiOSSUploadTool::create() { return create(Config{}); }

std::shared_ptr<ApiOSSUploadTool> ApiOSSUploadTool::create(Config config) {
    auto tool = std::make_shared<ApiOSSUploadTool>(std::move(config));
    tool->init();
    return tool;
}

namespace {

ApiOSSUploadTool::Config normalized(ApiOSSUploadTool::Config config) {
    auto& url = config.enterpriseApiBaseUrl;
    while (!url.empty() && url.back() == '/') url.pop_back();
    return config;
}

}  // namespace

ApiOSSUploadTool::ApiOSSUploadTool() : ApiOSSUploadTool(Config{}) {}
ApiOSSUploadTool::ApiOSSUploadTool(Config config) : config_(normalized(std::move(config))) {}
ApiOSSUploadTool::~ApiOSSUploadTool() = default;

// The engine's events for the video path. Every callback holds the tool weakly: the engine lives
// inside the tool, and the running upload's own reference keeps the tool alive.
void ApiOSSUploadTool::init() {
    imageUploadCancelStatus_ = 0;
    uploader_ = VODUploadClient::create(config_.vod);
    auto listener = std::make_shared<VODUploadListener>();
    std::weak_ptr<ApiOSSUploadTool> weak = weak_from_this();
    listener->finish = [weak](const std::shared_ptr<UploadFileInfo>&, const VodUploadResult& result) {
        foundation::logLine("upload finished callback videoid:" + result.videoId.value_or("(null)") +
                            ", imageurl:" + result.imageUrl.value_or("(null)"));
        if (auto self = weak.lock()) {
            if (self->SuccessCallback_) self->SuccessCallback_(Value::array({self->vodUploadDict_}));
            self->removeOverlayOnMain();
        }
    };
    listener->failure = [weak](const std::shared_ptr<UploadFileInfo>&, const std::string& code,
                               const std::string& message) {
        foundation::logLine("upload failed callback code = " + code + ", error message = " + message);
        if (auto self = weak.lock()) {
            if (self->FailCallback_) self->FailCallback_(Value{{"code", code}, {"message", message}});
            self->removeOverlayOnMain();
        }
    };
    listener->progress = [weak](const std::shared_ptr<UploadFileInfo>& file, long uploadedSize, long totalSize) {
        foundation::logLine("upload progress callback: " + describe(file) + ", uploadedSize : " +
                            std::to_string(uploadedSize) + ", totalSize : " + std::to_string(totalSize));
        int percentage = totalSize > 0 ? static_cast<int>(uploadedSize * 1.0 / totalSize * 100.0) : 0;
        foundation::dispatch::main().async([weak, percentage] {
            auto self = weak.lock();
            if (self && self->uploadingView_) self->uploadingView_->uploadingViewUpdate(percentage);
        });
    };
    listener->expire = [weak] {
        foundation::logLine("upload token expired callback.");
        if (auto self = weak.lock()) {
            if (self->FailCallback_) self->FailCallback_(kNativeErrorTokenExpired.toValue());
            self->removeOverlayOnMain();
        }
    };
    listener->retry = [] { foundation::logLine("upload retry begin callback."); };
    listener->retryResume = [] { foundation::logLine("upload retry end callback."); };
    listener->started = [weak](const std::shared_ptr<UploadFileInfo>& file) {
        foundation::logLine("upload upload started callback.");
        if (auto self = weak.lock()) self->uploader_->setUploadAuthAndAddress(file, self->uploadAuth_, self->uploadAddress_);
    };
    uploader_->setListener(std::move(listener));
}

// The upload has answered: the overlay goes, and the running upload lets go of the tool, both on
// the main thread.
void ApiOSSUploadTool::removeOverlayOnMain() {
    foundation::dispatch::main().async([self = shared_from_this(), retained = releaseUploadRetain()] {
        if (self->uploadingView_) self->uploadingView_->uploadingViewRemove();
    });
}

void ApiOSSUploadTool::retainWhileUploading() {
    std::lock_guard lock(retainMutex_);
    uploadRetain_ = shared_from_this();
}

std::shared_ptr<ApiOSSUploadTool> ApiOSSUploadTool::releaseUploadRetain() {
    std::lock_guard lock(retainMutex_);
    return std::move(uploadRetain_);
}

}  // namespace quorvane
