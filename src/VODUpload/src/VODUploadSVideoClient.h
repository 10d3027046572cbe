#pragma once
// Uploads one short video with its cover image as one job, with the caller's temporary credentials:
// an image slot from the video service, the cover upload, a video slot naming the cover's URL, the
// video upload. Drives its own VODUploadClient and reports to a delegate.
//
// Member definitions are split by concern:
//   VODUploadSVideoClient.cpp          set-up, settings, the engine listener and the hand-over
//   VODUploadSVideoClientControl.cpp   start, pause, resume, cancel, credential refresh
//   VODUploadSVideoClientSlots.cpp     the service requests and the two engine runs
//
// Every step of the job runs on the client's own serial queue: the public operations (which wait for
// it when called from another thread, and run in place from a delegate callback), the service replies
// and the engine's events, which hop onto it. So no field is touched from two threads and nothing
// waits for the engine to settle: the job reacts to what the engine reports. The queue's steps call
// the engine's operations, which are short; the engine's listener only posts to this queue, so the
// two never wait for each other. Step and status are also kept in atomics, and the settings behind
// their own lock, so both are read from any thread without the queue.
// The delegate is called on the queue.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "VODUpload/src/VODUploadClient.h"
#include "VODUpload/src/VODUploadSVideoClientDelegate.h"
#include "VODUpload/src/VodSVideoInfo.h"
#include "foundation/dispatch.h"
#include "foundation/error.h"
#include "foundation/http_client.h"
#include "foundation/value.h"

namespace quorvane {

class VODUploadSVideoClient : public std::enable_shared_from_this<VODUploadSVideoClient> {
public:
    // Status: 0 idle, 1 uploading, 2 paused.
    static constexpr std::int32_t kStatusIdle = 0;
    static constexpr std::int32_t kStatusUploading = 1;
    static constexpr std::int32_t kStatusPaused = 2;

    // Always held by std::shared_ptr: the engine listener holds the client weakly. create() runs init().
    // Its own service requests and its engine use `config`; without one, the system's own services.
    VODUploadSVideoClient();
    explicit VODUploadSVideoClient(VODServiceConfig config);
    static std::shared_ptr<VODUploadSVideoClient> create();
    static std::shared_ptr<VODUploadSVideoClient> create(VODServiceConfig config);
    VODUploadSVideoClient(const VODUploadSVideoClient&) = delete;
    VODUploadSVideoClient& operator=(const VODUploadSVideoClient&) = delete;

    // Runs setup: the engine with its listener and the "svideo" log store, the defaults.
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

    // --- Settings; those the engine shares are forwarded to it. Set on the queue, between two steps
    // of the job; read by value from any thread, without waiting for the queue. ---
    bool transcode() const { return setting(&Settings::transcode); }
    void setTranscode(bool on);
    bool recordUploadProgress() const { return setting(&Settings::recordUploadProgress); }
    void setRecordUploadProgress(bool on);
    bool reportEnabled() const { return setting(&Settings::reportEnabled); }
    void setReportEnabled(bool on);
    std::uint32_t maxRetryCount() const { return setting(&Settings::maxRetryCount); }
    void setMaxRetryCount(std::uint32_t count);
    double timeoutIntervalForRequest() const { return setting(&Settings::timeoutIntervalForRequest); }
    void setTimeoutIntervalForRequest(double seconds);
    std::int32_t uploadPartSize() const { return setting(&Settings::uploadPartSize); }
    void setUploadPartSize(std::int32_t bytes);
    std::optional<std::string> recordDirectoryPath() const { return setting(&Settings::recordDirectoryPath); }
    void setRecordDirectoryPath(std::optional<std::string> path);
    std::string region() const { return setting(&Settings::region); }
    void setRegion(std::string region);
    std::optional<std::string> appId() const { return setting(&Settings::appId); }
    void setAppId(std::optional<std::string> appId);
    std::optional<std::string> workflowId() const { return setting(&Settings::workflowId); }
    void setWorkflowId(std::optional<std::string> workflowId);
    std::shared_ptr<VODUploadSVideoClientDelegate> delegate() const { return setting(&Settings::delegate).lock(); }
    void setDelegate(std::weak_ptr<VODUploadSVideoClientDelegate> delegate);

    // --- Run state, for callers that show it ---
    std::int32_t status() const { return status_.load(); }
    std::int32_t step() const { return static_cast<std::int32_t>(step_.load()); }
    std::shared_ptr<VODUploadClient> client() const { return client_; }
    const VODServiceConfig& serviceConfig() const { return client_->serviceConfig(); }

    static constexpr const char* kLogSource = "VODUpload/src/VODUploadSVideoClient";

private:
    friend struct VODUploadSVideoClientTestAccess;

    enum class Step : std::int32_t {
        Idle = 0,
        ImageSlotRequested = 1,
        ImageSlotReceived = 2,
        CoverUploading = 3,
        CoverUploaded = 4,  // also: the video slot was refused for an expired token
        VideoSlotRequested = 5,
        VideoSlotReceived = 6,
        VideoUploading = 7,  // also while the video slot is refreshed
    };

    // What one job works with; its slot fields are the service's latest replies.
    struct Job {
        std::string accessKeyId, accessKeySecret, accessToken, expiredTime;
        std::string videoPath;
        std::optional<std::string> imagePath;
        std::shared_ptr<VodSVideoInfo> svideoInfo;
        std::optional<std::string> curAddress, curAuth, curRequestId, curImageURL, curVideoId;
        std::int64_t videoFileSize = 0;
        std::int64_t imageFileSize = 0;
    };
    using Reply = std::optional<Value>;
    using ReplyError = std::optional<Error>;
    using SlotHandler = void (VODUploadSVideoClient::*)(const Reply&, const ReplyError&, std::uint64_t);
    using ReplyCallback = std::function<void(std::optional<foundation::HttpResponse>, Reply, ReplyError)>;

    // Runs `f` on the queue and returns its result; in place when already there (a delegate callback).
    template <class F>
    auto serially(F&& f) {
        return queue_->syncResult(std::forward<F>(f));
    }
    // Posts `f` to the queue, to run while the client still exists.
    void later(std::function<void(VODUploadSVideoClient&)> f);

    void setup();
    void setStep(Step step) { step_ = step; }
    void setStepAndStatus(Step step, std::int32_t status);
    template <class F>
    void tellDelegate(F&& f) {
        if (auto d = delegate()) f(*d);
    }

    // --- The engine: one run per file, a listener per run ---
    std::shared_ptr<VODUploadListener> makeListener(const std::shared_ptr<VodInfo>& file);
    void runEngine(const std::string& path, std::shared_ptr<VodInfo> info);
    void resumeEngine();
    bool isRunFile(const std::shared_ptr<UploadFileInfo>& file) const;
    // Expiry and retries name no file: they are this job's once the engine took its file.
    bool runHasEngine(const char* what) const;
    void onEngineStarted(const std::shared_ptr<UploadFileInfo>& file);
    void onEngineFinish(const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result);
    void onEngineFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code,
                         const std::string& message);
    void onEngineProgress(const std::shared_ptr<UploadFileInfo>& file, long uploaded);
    void onEngineExpire();

    // --- The service requests ---
    void createUploadImage();
    void createUploadVideo();
    void refreshUploadVideo();
    void uploadImage();
    void uploadVideo();
    // The completion of a request of the current job: it hops onto the queue with the job's id.
    ReplyCallback replyHandler(SlotHandler handler);
    void onImageSlot(const Reply& reply, const ReplyError& error, std::uint64_t job);
    void onVideoSlot(const Reply& reply, const ReplyError& error, std::uint64_t job);
    void onRefreshedSlot(const Reply& reply, const ReplyError& error, std::uint64_t job);
    // A reply for a job that is no longer current: dropped (logged), or, for the job the last cancel
    // ended with no other begun since, its error reported.
    bool handledAsStale(std::uint64_t job, const ReplyError& error, const char* what);
    static void dropStale(const char* what);
    // A failed slot request's (code, message): expiry asks the delegate for new credentials.
    void tellSlotFailure(const std::pair<std::string, std::string>& failure);
    void storeSlot(const Value& reply);
    std::optional<std::string> userDataFor(const std::string& videoPath, const std::optional<std::string>& userData);

    // The host's settings: written on the queue; read anywhere, the queue included, only under
    // settingsMutex_.
    struct Settings {
        bool transcode = true;
        bool recordUploadProgress = true;
        bool reportEnabled = true;
        std::uint32_t maxRetryCount = 2147483647u;
        double timeoutIntervalForRequest = 30.0;
        std::int32_t uploadPartSize = 0;
        std::optional<std::string> recordDirectoryPath;
        std::string region = "cn-shanghai";
        std::optional<std::string> appId;
        std::optional<std::string> workflowId;
        std::weak_ptr<VODUploadSVideoClientDelegate> delegate;
    };
    template <class T>
    T setting(T Settings::*field) const {
        std::lock_guard lock(settingsMutex_);
        return settings_.*field;
    }
    template <class T>
    void store(T Settings::*field, T value) {
        std::lock_guard lock(settingsMutex_);
        settings_.*field = std::move(value);
    }
    mutable std::mutex settingsMutex_;
    Settings settings_;

    std::shared_ptr<VODUploadClient> client_;
    std::shared_ptr<foundation::SerialQueue> queue_;
    // Written on the queue only.
    std::atomic<std::int32_t> status_{kStatusIdle};
    std::atomic<Step> step_{Step::Idle};
    // The rest is touched on the queue only.
    std::uint64_t jobId_ = 0;         // moved on by every start and cancel
    std::uint64_t cancelledJob_ = 0;  // the id the last cancel ended
    Job job_;
    std::shared_ptr<foundation::HttpTask> curTask_;
    // The metadata of the file this job handed the engine: the engine's events about any other file
    // come from an earlier run. Cleared when the run ends.
    std::shared_ptr<VodInfo> runFile_;
    // Whether the engine has taken runFile_ yet; until then it is ending a run of an earlier job.
    bool engineTookRun_ = false;
    // The engine waits on a failed file until it is stopped.
    bool engineHalted_ = false;
};

}  // namespace quorvane
