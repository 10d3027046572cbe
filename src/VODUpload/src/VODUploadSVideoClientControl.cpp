// Run control of the short-video client: start, pause, resume, cancel and the credential refresh.
#include <filesystem>

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
    std::unique_lock guard(lock_);
    if (status_ != kStatusIdle || step_ != 0) {
        guard.unlock();
        vodLogDebug(kLogSource, "error: client is uploading, call this method when upload task is finished.");
        return false;
    }
    if (!svideoInfo || !svideoInfo->title || svideoInfo->title->empty()) {
        guard.unlock();
        vodLogDebug(kLogSource, "error: title in VodSVideoInfo can not be NULL");
        return false;
    }
    // Taken under the lock, so a second start racing this one is refused; the new generation makes
    // whatever an earlier job left in flight stale.
    status_ = kStatusUploading;
    const std::uint64_t job = ++job_.generation;
    job_.engineFile.reset();
    job_.videoFileSize = videoFileSize;
    job_.imageFileSize = imageFileSize;
    job_.videoPath = videoPath;
    job_.imagePath = imagePath;
    job_.svideoInfo = std::move(svideoInfo);
    job_.accessKeyId = accessKeyId;
    job_.accessKeySecret = accessKeySecret;
    job_.accessToken = accessToken;
    guard.unlock();
    createUploadImage(job);
    return true;
}

void VODUploadSVideoClient::pause() {
    const std::int32_t current = step();
    if (current == 3 || current == 7) client_->pause();
    // A request in flight (steps 1, 2, 5, 6) runs to its end; its completion stops short.
    setStatus(kStatusPaused);
}

void VODUploadSVideoClient::resume() {
    std::int32_t current = 0;
    std::uint64_t job = 0;
    std::optional<std::string> auth;
    {
        std::lock_guard guard(lock_);
        if (status_ != kStatusPaused) return;
        status_ = kStatusUploading;
        current = step_;
        job = job_.generation;
        auth = job_.curAuth;
    }
    if (current == 0)
        createUploadImage(job);
    else if (current == 4)
        createUploadVideo(job);
    else if (current == 3 || current == 7)
        client_->resumeWithAuth(auth.value_or(""));
    // Steps 1, 2, 5 and 6: nothing more; a job paused there stays parked until cancel.
}

void VODUploadSVideoClient::cancel() {
    std::shared_ptr<foundation::HttpTask> task;
    {
        // The job ends first, so work of it that is under way now finds itself stale from here on.
        std::lock_guard guard(lock_);
        task = curTask_;
        job_.cancelled = job_.generation++;
        job_.engineFile.reset();
        status_ = kStatusIdle;
        step_ = 0;
    }
    client_->clearFiles();
    if (task) task->cancel();
}

void VODUploadSVideoClient::refreshWithAccessKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                                                   const std::string& accessToken, const std::string& expireTime) {
    std::int32_t current = 0;
    std::uint64_t job = 0;
    {
        std::lock_guard guard(lock_);
        status_ = kStatusUploading;
        current = step_;
        job = job_.generation;
        job_.accessKeyId = accessKeyId;
        job_.accessKeySecret = accessKeySecret;
        job_.accessToken = accessToken;
        job_.expiredTime = expireTime;
    }
    if (current == 0)
        createUploadImage(job);
    else if (current == 4)
        createUploadVideo(job);
    else
        refreshUploadVideo(job);
}

}  // namespace quorvane
