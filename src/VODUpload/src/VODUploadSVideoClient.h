#pragma once
// Uploads one short video with its cover image as one job, with the caller's temporary credentials:
// an image slot from the video service, the cover upload, a video slot naming the cover's URL, the
// video upload. Drives its own VODUploadClient and reports to a delegate.
//
// Member definitions are split by concern:
//   VODUploadSVideoClient.cpp          set-up, settings, the engine listener
//   VODUploadSVideoClientControl.cpp   start, pause, resume, cancel, credential refresh
//   VODUploadSVideoClientSlots.cpp     the service requests and the two engine runs
//
// One mutex guards step, status and the job's fields. Every piece of work (a service request, an engine
// run) carries the generation of the job it was issued for and checks it under that mutex before it
// touches anything, so what a cancelled job leaves in flight never reaches the next one. The delegate
// and the engine are never called with the mutex held: the engine's listener callbacks take it.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VODUpload/src/VODUploadClient.h"
#include "VODUpload/src/VODUploadSVideoClientDelegate.h"
#include "VODUpload/src/VodSVideoInfo.h"
#include "foundation/http_client.h"

namespace quorvane {

class VODUploadSVideoClient : public std::enable_shared_from_this<VODUploadSVideoClient> {
public:
    // Status: 0 idle, 1 uploading, 2 paused.
    static constexpr std::int32_t kStatusIdle = 0;
    static constexpr std::int32_t kStatusUploading = 1;
    static constexpr std::int32_t kStatusPaused = 2;

    // Always held by std::shared_ptr: the engine listener holds the client weakly. create() runs init().
    // Its own service requests and its engine use `config`; without one, the process-wide settings
    // as they are now.
    VODUploadSVideoClient();
    explicit VODUploadSVideoClient(VODServiceConfig config);
    static std::shared_ptr<VODUploadSVideoClient> create();
    static std::shared_ptr<VODUploadSVideoClient> create(VODServiceConfig config);
    VODUploadSVideoClient(const VODUploadSVideoClient&) = delete;
    VODUploadSVideoClient& operator=(const VODUploadSVideoClient&) = delete;

    // Runs setup: the listener, the engine with the "svideo" log store, the defaults.
    bool init();

    // True when the job was started; refused while a job runs or without a title.
    bool uploadWithVideoPath(const std::string& videoPath, const std::optional<std::string>& imagePath,
                             std::shared_ptr<VodSVideoInfo> svideoInfo, const std::string& accessKeyId,
                             const std::string& accessKeySecret, const std::string& accessToken);
    void pause();
    void resume();
    void cancel();
    // New credentials after uploadTokenExpired; continues from where the job was parked.
    void refreshWithAccessKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                                const std::string& accessToken, const std::string& expireTime);
    void setRequestId(const std::string& requestId);
    // The caller's user data (a JSON object text) with the video's media facts and "Source".
    std::optional<std::string> userDataWithCreateUploadVideoUserData(const std::optional<std::string>& userData);

    // --- Settings; those the engine shares are forwarded to it ---
    bool transcode() const { return transcode_; }
    void setTranscode(bool on);
    bool recordUploadProgress() const { return recordUploadProgress_; }
    void setRecordUploadProgress(bool on);
    bool reportEnabled() const { return reportEnabled_; }
    void setReportEnabled(bool on);
    std::uint32_t maxRetryCount() const { return maxRetryCount_; }
    void setMaxRetryCount(std::uint32_t count);
    double timeoutIntervalForRequest() const { return timeoutIntervalForRequest_; }
    void setTimeoutIntervalForRequest(double seconds);
    std::int32_t uploadPartSize() const { return uploadPartSize_; }
    void setUploadPartSize(std::int32_t bytes);
    const std::optional<std::string>& recordDirectoryPath() const { return recordDirectoryPath_; }
    void setRecordDirectoryPath(std::optional<std::string> path);
    const std::string& region() const { return region_; }
    void setRegion(std::string region);
    const std::optional<std::string>& appId() const { return appId_; }
    void setAppId(std::optional<std::string> appId) { appId_ = std::move(appId); }
    const std::optional<std::string>& workflowId() const { return workflowId_; }
    void setWorkflowId(std::optional<std::string> workflowId) { workflowId_ = std::move(workflowId); }
    std::shared_ptr<VODUploadSVideoClientDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<VODUploadSVideoClientDelegate> delegate) { delegate_ = std::move(delegate); }

    // --- Run state, for callers that show it ---
    std::int32_t status() const;
    std::int32_t step() const;
    std::shared_ptr<VODUploadClient> client() const { return client_; }
    const VODServiceConfig& serviceConfig() const { return client_->serviceConfig(); }

    static constexpr const char* kLogSource = "VODUpload/src/VODUploadSVideoClient";

private:
    friend struct VODUploadSVideoClientTestAccess;

    // What one job works with. Copied under the lock by the work of that job, so a later job's
    // values never mix into it.
    struct Job {
        std::uint64_t generation = 0;  // moved on by every start and cancel
        std::uint64_t cancelled = 0;   // the generation the last cancel ended
        std::string accessKeyId, accessKeySecret, accessToken, expiredTime;
        std::string videoPath;
        std::optional<std::string> imagePath;
        std::shared_ptr<VodSVideoInfo> svideoInfo;
        std::optional<std::string> curAddress, curAuth, curRequestId, curImageURL, curVideoId;
        std::int64_t videoFileSize = 0;
        std::int64_t imageFileSize = 0;
        // The metadata of the file this job handed the engine: the engine's callbacks about any other
        // file come from an earlier run.
        std::shared_ptr<VodInfo> engineFile;
    };

    void setup();
    std::shared_ptr<VODUploadListener> makeListener();
    void onEngineFinish(const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result);
    void onEngineFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                         const std::string& message);
    void onEngineProgress(const std::shared_ptr<UploadFileInfo>& file, long uploaded);
    void onEngineStarted(const std::shared_ptr<UploadFileInfo>& file);
    // Expiry and retries name no file: they belong to the current job while it has an engine run.
    bool engineRunIsCurrent(const char* what) const;
    // With lock_ held: whether the engine's callback is about this job's file.
    bool isEngineFileLocked(const std::shared_ptr<UploadFileInfo>& file) const;

    void createUploadImage(std::uint64_t job);
    void createUploadVideo(std::uint64_t job);
    void refreshUploadVideo(std::uint64_t job);
    void uploadImage(std::uint64_t job);
    void uploadVideo(std::uint64_t job);
    void onImageSlot(const std::optional<Value>& reply, const std::optional<Error>& error, std::uint64_t job);
    void onVideoSlot(const std::optional<Value>& reply, const std::optional<Error>& error, std::uint64_t job);
    void onRefreshedSlot(const std::optional<Value>& reply, const std::optional<Error>& error, std::uint64_t job);
    void storeSlotLocked(const Value& reply);
    // Hands one file to the engine as its only queue entry and starts it.
    void runEngine(std::uint64_t job, const std::string& path, std::shared_ptr<VodInfo> info);
    std::optional<std::string> userDataFor(const std::string& videoPath, const std::optional<std::string>& userData);

    // A copy of the job with `step` set, or nothing when `job` is no longer the current one.
    std::optional<Job> advance(std::uint64_t job, std::int32_t step);
    bool isCurrent(std::uint64_t job) const;
    // A reply for a job that is no longer current: dropped (logged), or, for the job the last cancel
    // ended with no other begun since, its error reported. Unlocks `guard` when it returns true.
    bool handledAsStale(std::unique_lock<std::mutex>& guard, std::uint64_t job, const std::optional<Error>& error,
                        const char* what);
    static void dropStale(const char* what);
    void setStatus(std::int32_t status);
    void setStepAndStatus(std::int32_t step, std::int32_t status);
    // Keeps the request in flight; one issued for a job that is no longer current is cancelled at once.
    void setCurTask(std::shared_ptr<foundation::HttpTask> task, std::uint64_t job);

    bool transcode_ = true;
    bool recordUploadProgress_ = true;
    bool reportEnabled_ = true;
    std::uint32_t maxRetryCount_ = 2147483647u;
    double timeoutIntervalForRequest_ = 30.0;
    std::int32_t uploadPartSize_ = 0;
    std::optional<std::string> recordDirectoryPath_;
    std::string region_ = "cn-shanghai";
    std::optional<std::string> appId_;
    std::optional<std::string> workflowId_;
    std::weak_ptr<VODUploadSVideoClientDelegate> delegate_;

    std::shared_ptr<VODUploadClient> client_;
    mutable std::mutex lock_;
    // Guarded by lock_.
    std::int32_t status_ = kStatusIdle;
    std::int32_t step_ = 0;
    Job job_;
    std::shared_ptr<foundation::HttpTask> curTask_;
    // The engine waits on a failed file until it is stopped; the next run stops it first.
    bool engineHalted_ = false;
};

}  // namespace quorvane
