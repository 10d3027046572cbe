// Run control of the short-video client: start, pause, resume, cancel and the credential refresh.
#include <filesystem>
#include <utility>

#include "VODUpload/src/VODLog.h"
#include "VODUpload/src/VODUploadSVideoClient.h"

namespace quorvane {
namespace {

// 0 when the file cannot be read.
std::int64_t fileSizeOf(const std::optional<std::string>& path) {
    if (!path) return 0;
    std::error_code ec;
    const auto size = std::filesystem::file_size(*path, ec);
    return ec ? 0 : static_cast<std::int64_t>(size);
}

}  // namespace

bool VODUploadSVideoClient::uploadWithVideoPath(const std::string& videoPath,
                                                const std::optional<std::string>& imagePath,
                                                std::shared_ptr<VodSVideoInfo> svideoInfo,
                                                const std::string& accessKeyId, const std::string& accessKeySecret,
                                                const std::string& accessToken) {
    const std::int64_t videoFileSize = fileSizeOf(videoPath);
    const std::int64_t imageFileSize = fileSizeOf(imagePath);
    return serially([&] {
        if (status_ != kStatusIdle || step_ != Step::Idle) {
            vodLogDebug(kLogSource, "error: client is uploading, call this method when upload task is finished.");
            return false;
        }
        if (!svideoInfo || !svideoInfo->title || svideoInfo->title->empty()) {
            vodLogDebug(kLogSource, "error: title in VodSVideoInfo can not be NULL");
            return false;
        }
        // A new id makes whatever an earlier job left in flight stale.
        ++jobId_;
        status_ = kStatusUploading;
        runFile_.reset();
        job_.videoFileSize = videoFileSize;
        job_.imageFileSize = imageFileSize;
        job_.videoPath = videoPath;
        job_.imagePath = imagePath;
        job_.svideoInfo = std::move(svideoInfo);
        job_.accessKeyId = accessKeyId;
        job_.accessKeySecret = accessKeySecret;
        job_.accessToken = accessToken;
        createUploadImage();
        return true;
    });
}

void VODUploadSVideoClient::pause() {
    serially([&] {
        const Step step = step_;
        // An engine still ending an earlier job's run has not taken this one: it is paused when it does.
        if ((step == Step::CoverUploading || step == Step::VideoUploading) && engineTookRun_) client_->pause();
        // A request in flight (steps 1, 2, 5, 6) runs to its end; its completion stops short.
        status_ = kStatusPaused;
    });
}

void VODUploadSVideoClient::resume() {
    serially([&] {
        if (status_ != kStatusPaused) return;
        status_ = kStatusUploading;
        switch (step_.load()) {
        case Step::Idle:
            return createUploadImage();
        case Step::CoverUploaded:
            return createUploadVideo();
        case Step::CoverUploading:
        case Step::VideoUploading:
            if (engineTookRun_) resumeEngine();
            return;
        default:
            return;  // steps 1, 2, 5 and 6: nothing more; a job paused there stays parked until cancel
        }
    });
}

void VODUploadSVideoClient::cancel() {
    serially([&] {
        // The job ends first, so what it has under way finds itself stale from here on.
        cancelledJob_ = jobId_++;
        runFile_.reset();
        setStepAndStatus(Step::Idle, kStatusIdle);
        client_->clearFiles();
        if (auto task = std::exchange(curTask_, nullptr)) task->cancel();
    });
}

void VODUploadSVideoClient::refreshWithAccessKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                                                   const std::string& accessToken, const std::string& expireTime) {
    serially([&] {
        status_ = kStatusUploading;
        job_.accessKeyId = accessKeyId;
        job_.accessKeySecret = accessKeySecret;
        job_.accessToken = accessToken;
        job_.expiredTime = expireTime;
        switch (step_.load()) {
        case Step::Idle:
            return createUploadImage();
        case Step::CoverUploaded:
            return createUploadVideo();
        default:
            return refreshUploadVideo();
        }
    });
}

}  // namespace quorvane
