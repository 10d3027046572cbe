#pragma once
// The engine's events. Every callback is optional: the engine skips the ones left empty.
#include <functional>
#include <memory>
#include <string>

#include "VODUpload/src/VODUploadModel.h"

namespace quorvane {

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
    // The upload moves again after retries.
    std::function<void()> retryResume;
    // The queue picked this file, before anything is sent for it.
    FileCallback started;
};

}  // namespace quorvane
