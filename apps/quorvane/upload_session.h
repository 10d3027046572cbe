#pragma once
// One run of `quorvane upload`: queues the files on a VODUploadClient, turns its events into the
// progress view, runs the main loop until every file has ended or the user interrupts, then checks
// what the local cloud stored and prints the summary.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VODUpload/src/VODUploadClient.h"
#include "embedded_cloud.h"
#include "upload_progress_view.h"

namespace quorvane::app {

struct UploadJob {
    std::string display;  // as the user wrote it
    std::string path;     // absolute
    bool vod = false;     // registered through the video service; else put straight into the bucket
    std::uint64_t size = 0;
};

struct UploadPlan {
    std::vector<UploadJob> jobs;
    std::string endpoint;  // object-storage endpoint of direct uploads
    std::string bucket;
    std::string keyId, secret, token, expire;  // token and expire empty for a plain key pair
    std::string region;
    std::optional<std::string> title;
    std::int32_t partSize = 1048576;
    std::int32_t maxRetries = 5;
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

private:
    std::shared_ptr<VODUploadListener> makeListener();
    bool queueFiles();
    int indexOf(const std::shared_ptr<UploadFileInfo>& file) const;
    void onStarted(const std::shared_ptr<UploadFileInfo>& file);
    void onFinish(const std::shared_ptr<UploadFileInfo>& file, const VodUploadResult& result);
    void onFailure(const std::shared_ptr<UploadFileInfo>& file, const std::string& code, const std::string& message);
    void continueAfterFailure(std::shared_ptr<UploadFileInfo> file);
    void onExpire();
    bool waitUntilDone();
    void pauseForResume();
    int finish(std::chrono::steady_clock::time_point began);

    UploadPlan plan_;
    UploadProgressView& view_;
    EmbeddedCloud* cloud_;
    std::shared_ptr<VODUploadClient> client_;
    std::vector<std::shared_ptr<UploadFileInfo>> entries_;  // parallel to plan_.jobs
    std::vector<std::optional<std::uint64_t>> recorded_;    // bytes stored by an earlier run
    mutable std::mutex mutex_;
    std::vector<std::optional<FileOutcome>> outcomes_;
    bool fatal_ = false;  // the run cannot go on (credentials refused)
    int renewals_ = 0;
};

// Set by SIGINT; the first one asks for a clean pause, the second ends the process.
void installInterruptHandler();
bool interruptRequested();

}  // namespace quorvane::app
