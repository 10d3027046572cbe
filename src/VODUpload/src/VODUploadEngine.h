#pragma once
// The state and the steps of an upload client: what `VODUploadClient` (the public class, whose operations
// are defined in VODUploadClient*.cpp) holds, shared with the callbacks of its requests, which may
// outlive the host's client. Not installed: its steps, fields and the types of the layers under it
// are the library's own business.
//
// Member definitions are split by concern:
//   VODUploadEngine.cpp          construction and options
//   VODUploadEngineAuth.cpp      credential records, upload auth and address, credential provider
//   VODUploadEngineContinue.cpp  continuing an upload once new credentials arrived
//   VODUploadEngineQueue.cpp     upload events, picking the next file, asking for its auth
//   VODUploadEngineUpload.cpp    the resumable multipart upload, progress and retries
//   VODUploadEngineCreate.cpp    create-upload requests to the video service, start event
//
// Every step of the engine runs on the client's own serial queue: the host's operations (which wait
// for it when called from another thread, and run in place from a listener callback), the
// object-storage and video-service completions, progress, and the timer of the retry wait. So no
// field is touched from two threads and the engine needs no lock of its own. Listener callbacks run
// on that queue, off the main thread. The one lock guards the credential records, which the
// credential providers (they may outlive the client) read at every token fetch.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODServiceConfig.h"
#include "VODUpload/src/VODUploadClient.h"
#include "VODUpload/src/VODFileUpload.h"
#include "VODUpload/src/VODUploadErrorClass.h"
#include "VODUpload/src/VODUploadListener.h"
#include "VODUpload/src/VODUploadModel.h"
#include "VODUpload/src/VODUploadOptions.h"
#include "VODUpload/src/VODUploadRetryPolicy.h"
#include "VODUpload/src/VodInfo.h"
#include "foundation/dispatch.h"
#include "foundation/error.h"
#include "foundation/http_client.h"
#include "foundation/value.h"
#include "oss/credential_provider.h"
#include "oss/oss_client.h"

namespace quorvane {

class AVCVEventManager;
class VODObjectCache;
struct VODUploadProgressContext;

class VODUploadEngine : public std::enable_shared_from_this<VODUploadEngine> {
public:
    // Always held by std::shared_ptr (callbacks hold the client weakly). Without a configuration the
    // client talks to the system's own services.
    VODUploadEngine();
    explicit VODUploadEngine(VODServiceConfig config);
    static std::shared_ptr<VODUploadEngine> create() { return std::make_shared<VODUploadEngine>(); }
    static std::shared_ptr<VODUploadEngine> create(VODServiceConfig config) {
        return std::make_shared<VODUploadEngine>(std::move(config));
    }
    VODUploadEngine(const VODUploadEngine&) = delete;
    VODUploadEngine& operator=(const VODUploadEngine&) = delete;

    // --- Upload auth and address issued by the video service ---
    // Stores the auth's credentials into `config` and a non-empty "Region" into region.
    bool parseUploadAuth(const std::string& uploadAuth, OSSConfig& config);
    // Fills the file's endpoint, bucket and object; the object key of an interrupted earlier
    // attempt (from the resume cache of the current file) wins over the one the service gave.
    bool parseUploadAddress(const std::string& uploadAddress, const std::shared_ptr<UploadFileInfo>& uploadInfo);

    // The provider for a new object-storage client: openApiConfig before ossConfig; STS credentials
    // are read from the record at every token fetch; nullptr without a usable key pair.
    std::shared_ptr<oss::OSSCredentialProvider> getCredentialProvider();

    // --- The queue's steps ---
    // Takes the first Ready file as the current one and begins its upload; Finished when none is left.
    void next();
    // Registers the current file with the video service (image or video), or fails a file of another type.
    void requestUploadAuthAddress();
    // The class of an object-storage error in the client's current state, as its number.
    int shouldRetry(const Error& error) const { return static_cast<int>(classify(error, state_.load())); }

    // --- Multipart upload of the current file ---
    void startOSSClientUpload();
    void initMultiUpload();
    void resumableUpload();
    // A direct upload's file no larger than a part, when singleRequestUpload is on: one PutObject.
    void putWholeFile();

    // --- Create-upload requests ---
    void createUploadVideo();
    void createUploadImage();
    // A refresh when the resume cache holds a video id for `fileName`, else a create.
    std::shared_ptr<foundation::HttpTask> createOrRefreshUploadVideoWithKeyId(
        const std::string& keyId, const std::string& keySecret, const std::string& token, const std::string& title,
        const std::string& fileName, const Value& optionalParams, VODOpenApiCompletionHandler completionHandler);
    // The caller's user data (when it is a JSON object) with the media facts of the file added.
    std::optional<std::string> userDataWithVideoPath(const std::string& videoPath,
                                                     const std::optional<std::string>& userData);
    void sendStartEvent();

    // The wait before each retry (2 s), a timer on the client's queue. Tests shorten it.
    void setRetryWait(std::chrono::milliseconds wait);
    static constexpr std::chrono::milliseconds kRetryWait = VODUploadRetryPolicy::kDefaultWait;

    // --- Properties ---
    VODClientState state() const { return state_; }
    // The host's options as they are now, read and changed under their own lock: no caller waits for
    // an upload step. A change applies from the next step that reads the field.
    VODUploadOptions options() const;
    template <class T>
    T option(T VODUploadOptions::*field) const {
        std::lock_guard lock(optionsMutex_);
        return options_.*field;
    }
    template <class F>
    void updateOptions(F&& change) {
        VODUploadOptions before, now;
        {
            std::lock_guard lock(optionsMutex_);
            before = options_;
            change(options_);
            now = options_;
        }
        optionsChanged(before, now);
    }
    // The configuration of the next object-storage client: the options' storage settings.
    oss::OSSClientConfiguration storageConfiguration() const;
    std::int64_t partSizeFor(std::int64_t fileSize) const;

    // Read access for callers that show or log the engine's state.
    std::shared_ptr<OSSConfig> ossConfig() const;
    std::shared_ptr<OSSConfig> openApiConfig() const;
    std::optional<std::string> curUploadAddress() const;
    std::optional<std::string> curVideoId() const;
    std::optional<std::string> curImageURL() const;
    std::shared_ptr<VODUploadListener> listener() const;
    std::shared_ptr<AVCVEventManager> eventManager() const { return eventManager_; }
    // The services this client talks to, fixed at creation.
    const VODServiceConfig& serviceConfig() const { return serviceConfig_; }

    static constexpr const char* kLogSource = "VODUpload/src/VODUploadClient";

private:
    friend class VODUploadClient;  // the host's operations are steps on these fields
    friend struct VODUploadClientTestAccess;
    friend struct VODUploadEngineTestAccess;

    // Runs `f` on the client's queue and returns its result (in place when already there). A step
    // that throws fails the current file (the queue would swallow the exception, and the host would
    // wait for the file for ever).
    template <class F>
    auto serially(F&& f) const {
        return queue_->syncResult([&] { return guarded(f); });
    }
    template <class F>
    auto guarded(F&& f) const -> std::invoke_result_t<F&> {
        try {
            return f();
        } catch (const std::exception& e) {
            stepThrew(e.what());
        } catch (...) {
            stepThrew("an unknown exception");
        }
        if constexpr (!std::is_void_v<std::invoke_result_t<F&>>) return {};
    }
    void stepThrew(const std::string& what) const;
    // Posts `f` to the client's queue, to run while the client still exists.
    void later(std::function<void(VODUploadEngine&)> f);
    // The ticket of a request the current file is about to send, and whether an answer holding it still
    // counts: the file is still the one under way and has sent no newer request since.
    struct RequestTicket {
        std::weak_ptr<VODFileUpload> upload;
        std::uint64_t number = 0;
    };
    RequestTicket newRequest() { return {upload_, upload_->newRequest()}; }
    bool answers(const RequestTicket& ticket) const {
        return ticket.upload.lock() == upload_ && upload_->answers(ticket.number);
    }
    // Posts `f` to the queue, to run only if the answer holding `ticket` still counts then.
    void onAnswer(const RequestTicket& ticket, std::function<void(VODUploadEngine&)> f);
    // The file that `next` picked (null when none was left).
    const std::shared_ptr<UploadFileInfo>& cur() const { return upload_->entry; }

    // What follows a change of the options outside the engine's own fields (the resume cache, events).
    void optionsChanged(const VODUploadOptions& before, const VODUploadOptions& now);
    // The one place the client state changes.
    void transitionTo(VODClientState next);
    void setCredentials(std::optional<std::string> keyId, std::optional<std::string> secret,
                        std::optional<std::string> token, std::optional<std::string> expire);
    // After resumeWithToken took new credentials and moved to Started: go on with the interrupted
    // multipart upload (uploadId set), or pick the first Ready file again.
    void continueAfterNewCredentials();

    // Engine steps shared by the queue, upload and create files.
    void sendUploadEvent(long long eventCode, const Value& params);
    void cancelUploadRequest(bool logWhenNone);
    bool makeOSSClient();
    void onInitMultiUpload(const oss::OSSTask<oss::OSSInitMultipartUploadResult>& task);
    void onResumableUpload(const oss::OSSTask<oss::OSSResumableUploadResult>& task);
    std::shared_ptr<VODUploadProgressContext> progressContext() const;
    // The part size and the state of the current file as its upload began (queue only).
    std::int64_t currentPartSize() const;
    std::optional<oss::OSSFileState> fileState() const;
    void lookAtFile();
    // The progress block of the current file's upload request, reporting on the queue.
    std::function<void(std::int64_t, std::int64_t, std::int64_t)> progressHandler(const RequestTicket& ticket);
    void onLateEnd(const std::optional<Error>& error);
    // The end of the file's upload (multipart or single put): nullptr on success.
    void onUploadEnded(const Error* error);
    // Whether the current file's upload has begun (an upload id, or its single put), so that a resume
    // continues it rather than take the next Ready file.
    bool uploadUnderWay() const;
    bool restartGoneRecordedUpload(const Error& error);
    // Goes on after an object-storage error by its class; a retry repeats the step the file is at.
    void handleUploadError(const Error& error);
    void retryUploadStep(const Error& error);
    void failCurrentFile(const std::string& code, const std::string& message);
    void failCurrentFile(const Error& error);
    // After the initiation (or the adoption of a recorded upload id): the file is Uploading.
    void onUploadIdReady(const std::string& uploadId, bool fresh);
    void onProgress(const std::shared_ptr<VODUploadProgressContext>& context, std::int64_t bytesSent,
                    std::int64_t totalSent, std::int64_t totalExpected);
    void onCreateAnswer(const std::optional<Value>& reply, const std::optional<Error>& error, bool image);
    void continueWithIssuedAuth(const std::string& uploadAddress, const std::string& uploadAuth);
    // A copy of a credential record taken under the credentials lock (empty for nullptr).
    OSSConfig credentialsOf(const std::shared_ptr<OSSConfig>& config) const;

    // Fields in their order of declaration. All but the state and the options are touched on the queue
    // only; the state is also read by state() and waitUntilSettled from any thread. The service configuration
    // never changes, so any thread may read it.
    const VODServiceConfig serviceConfig_;
    std::shared_ptr<foundation::SerialQueue> queue_;
    std::atomic<VODClientState> state_{VODClientState::Idle};
    std::shared_ptr<oss::OSSClient> client_;
    std::shared_ptr<OSSConfig> ossConfig_;
    // The current file's upload; `next` replaces it. Never null.
    std::shared_ptr<VODFileUpload> upload_ = std::make_shared<VODFileUpload>(nullptr);
    std::optional<std::string> curUploadAddress_;
    std::vector<std::shared_ptr<UploadFileInfo>> uploadList_;
    std::shared_ptr<oss::OSSRequest> uploadRequest_;  // the running multipart upload or single put
    std::shared_ptr<VODUploadListener> callback_;
    std::shared_ptr<AVCVEventManager> eventManager_;
    std::shared_ptr<OSSConfig> openApiConfig_;
    // The retries of the upload steps. The counter is not cleared when a file fails for good: a
    // retryResume may still be owed, and the next file's first progress pays it.
    VODUploadRetryPolicy retry_;
    mutable std::mutex optionsMutex_;
    VODUploadOptions options_;
    // Wakes waitUntilSettled at every state change and halt; guards nothing else.
    mutable std::mutex stateMutex_;
    // The queue waits on a failed file: set when a file fails, cleared by the next state change or `next`.
    bool halted_ = false;
    void setHalted(bool halted);
    mutable std::condition_variable stateChanged_;
    // Guards the fields of ossConfig_ and openApiConfig_ and which record openApiConfig_ is. Shared
    // with the credential providers, which may outlive the client.
    std::shared_ptr<std::mutex> credentialsMutex_ = std::make_shared<std::mutex>();
};

// The engine behind a public client, for this library's own classes (the short-video client) and tests.
struct VODUploadClientInternals {
    static VODUploadEngine& engine(const VODUploadClient& client) { return *client.engine_; }
    static std::shared_ptr<VODUploadEngine> shared(const VODUploadClient& client) { return client.engine_; }
};

}  // namespace quorvane
