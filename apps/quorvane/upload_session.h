#pragma once
// One run of `quorvane upload`: each file on a VODUploadClient of its own, up to `jobs` at once; turns
// their events into the progress view, runs the main loop until every file has ended or the user
// interrupts, then checks what the local cloud stored and prints the summary.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VODUpload/src/VODUploadClient.h"
#include "embedded_cloud.h"
#include "object_store.h"
#include "upload_progress_view.h"

namespace quorvane::app {

struct UploadJob {
    std::string display;  // as the user wrote it
    std::string path;     // absolute
    std::string object;   // key of a direct upload (the video service chooses its own)
    bool vod = false;     // registered through the video service; else put straight into the bucket
    std::uint64_t size = 0;
};

struct UploadPlan {
    std::vector<UploadJob> jobs;
    std::string endpoint;  // object-storage endpoint of direct uploads
    std::string bucket;
    std::string keyId, secret, token, expire;  // token and expire empty for a plain key pair
    std::string region;         // of the video service; empty: its default
    std::string storageRegion;  // of the bucket, for V4 signatures; empty: the endpoint's or the upload auth's
    int signatureVersion = 4;   // object storage: 4 or 1
    std::string caFile;
    VODSignatureVersion vodSignature = VODSignatureVersion::HmacSha1;
    std::optional<std::string> vodBaseUrl;  // the video service; nullopt: the regional one
    std::string logServiceEndpoint;         // where telemetry goes; empty: nowhere
    std::shared_ptr<VODObjectCache> resumeCache;  // every client's; nullptr: the process-wide one
    std::shared_ptr<foundation::HttpClient> http;  // every client's requests (a --bwlimit cap); nullptr: shared
    std::optional<std::string> title;
    std::int32_t partSize = 1048576;
    std::int32_t maxRetries = 5;  // retries of one file in all
    int idleTimeout = 30;         // seconds without a byte moving before a request is given up
    int parallel = 1;             // files at once
    std::string recordDir;
    std::string resumeHint;  // the command that continues this run
};

// Exit statuses of `quorvane upload`.
constexpr int kExitUploaded = 0;
constexpr int kExitSomeFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

class UploadSession : public std::enable_shared_from_this<UploadSession> {
public:
    // `cloud` is the embedded local cloud, or nullptr for real services.
    UploadSession(UploadPlan plan, UploadProgressView& view, EmbeddedCloud* cloud);
    // Runs on the calling (main) thread until done; the process exit status.
    int run();
    // After a run that was not interrupted: lets each client it started reach its end, which sends the
    // file's last events, for at most `grace`. A client still running a file given up on is stopped.
    void settle(std::chrono::milliseconds grace);

private:
    struct Running {
        std::shared_ptr<VODUploadClient> client;
        std::shared_ptr<UploadFileInfo> entry;
        // Bytes the service already held when this run began sending (an earlier run's parts): the
        // upload's first word on them, before any progress. Later restarts within the run don't count.
        std::optional<std::uint64_t> resumedFrom;
        bool moved = false;  // progress was reported
        // The last sign of life (an event of the file, or its turn to start while its lookup is out);
        // unset before its turn.
        std::optional<std::chrono::steady_clock::time_point> lastSign;
        int retries = 0;
        bool ended = false;
    };
    std::shared_ptr<VODUploadListener> makeListener(std::size_t index);
    // Whether each direct upload's object is stored already is asked while the uploads go on, a few
    // files ahead of the ones that start; a file starts once its answer is in.
    void startLookup();
    void onStoredAnswer(std::size_t index, const StoredObjectAnswer& answer);
    // After its answer: true when the file is stored with the same size and CRC-64 (nothing to send).
    bool skipIfStored(std::size_t index);
    void uploadEmptyFile(std::size_t index);
    void launchMore();
    // Makes the file's client and hands it the file without starting it (while its lookup is out, so
    // that setting up overlaps the round trip); false when the engine refused, and the file has ended.
    bool prepare(std::size_t index);
    bool launch(std::size_t index);
    void onStarted(std::size_t index);
    void onResumed(std::size_t index, std::uint64_t stored);
    void onProgress(std::size_t index, std::uint64_t uploaded, std::uint64_t total);
    void onRetry(std::size_t index, const VODRetryNotice& notice);
    // Counts one retry of the file in all; false when that passes --retries (the file has ended then).
    bool countRetry(std::size_t index, int& count);
    void sawSign(std::size_t index, std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());
    // Once a second while the run goes on: tells the view of each file that has been silent too long.
    void watchSilence();
    void onFinish(std::size_t index, const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result);
    void onFailure(std::size_t index, const std::string& code, const std::string& message);
    void end(std::size_t index, FileOutcome outcome);
    void onExpire(std::size_t index);
    bool allEnded() const;
    bool waitUntilDone();
    void pauseForResume();
    int finish(std::chrono::steady_clock::time_point began);
    // Server text as it may be shown: no credentials in it.
    std::string redacted(const std::string& text) const;

    UploadPlan plan_;
    UploadProgressView& view_;
    EmbeddedCloud* cloud_;
    std::vector<Running> running_;  // parallel to plan_.jobs; a client only while its file runs
    std::size_t next_ = 0;          // the next job to launch (main thread)
    mutable std::mutex mutex_;
    std::vector<std::optional<FileOutcome>> outcomes_;
    std::vector<bool> skipped_;
    std::shared_ptr<StoredObjectLookup> lookup_;
    std::vector<std::size_t> lookupJobs_;  // the job of each key the lookup asks about
    // Per job: whether its lookup answered (direct uploads only), and what it found.
    std::vector<bool> lookedUp_;
    std::vector<std::optional<StoredObject>> stored_;
    bool fatal_ = false;  // the run cannot go on (credentials refused)
    int renewals_ = 0;
};

// Set by SIGINT; the first one asks for a clean pause, the second ends the process.
void installInterruptHandler();
bool interruptRequested();

}  // namespace quorvane::app
