#pragma once
// The engine's events. Every callback is optional: the engine skips the ones left empty.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "VODUpload/src/VODUploadModel.h"

namespace quorvane {

// One retry of a file's upload, as a host would show it.
struct VODRetryNotice {
    std::shared_ptr<UploadFileInfo> file;
    int count = 0;  // 1 for the first retry of this run of retries
    int limit = 0;  // the most retries allowed in a run
    std::string cause;
    std::chrono::milliseconds wait{0};  // before it goes
    // True: a single request sent again inside the object-storage client (count and limit are that
    // request's); false: the engine's own retry of the upload step.
    bool request = false;
};

struct VODUploadListener {
    using FileCallback = std::function<void(const std::shared_ptr<UploadFileInfo>&)>;

    // The file's multipart upload completed; fires just before finish.
    FileCallback success;
    std::function<void(const std::shared_ptr<UploadFileInfo>&, const VodUploadResult&)> finish;
    // The file failed for good: (file, code, message).
    std::function<void(const std::shared_ptr<UploadFileInfo>&, const std::string& code, const std::string& message)>
        failure;
    std::function<void(const std::shared_ptr<UploadFileInfo>&, long uploadedSize, long totalSize)> progress;
    // Credentials expired; the client is paused until it is given new ones.
    std::function<void()> expire;
    // A run of retries begins.
    std::function<void()> retry;
    // Every retry, with its count, limit, cause and wait.
    std::function<void(const VODRetryNotice&)> retrying;
    // The upload moves again after retries.
    std::function<void()> retryResume;
    // The queue picked this file, before anything is sent for it.
    FileCallback started;
    // The upload continues one that already holds `storedBytes` of the file (parts the service has,
    // checked against the file), before anything more is sent. Each start of the upload that finds
    // stored parts says so, also a retry within this run. (file, storedBytes)
    std::function<void(const std::shared_ptr<UploadFileInfo>&, std::uint64_t storedBytes)> resumed;
    // The upload an earlier run began for this file is gone from the service (aborted, expired): its
    // record is dropped and a new upload begins at once. (file, why)
    std::function<void(const std::shared_ptr<UploadFileInfo>&, const std::string& why)> restarted;
};

}  // namespace quorvane
