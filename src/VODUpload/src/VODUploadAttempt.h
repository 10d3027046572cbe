#pragma once
// What the engine knows of the file it is uploading now, beyond the file's own entry: made empty
// when `next` picks a file, filled as the steps answer, and never carried over to the next file.
#include <memory>
#include <optional>
#include <string>

#include "VODUpload/src/VODInnerFileInfo.h"

namespace quorvane {

struct VODUploadAttempt {
    std::optional<std::string> uploadId;
    bool uploadIdIsNew = false;  // initiated by this attempt: nothing stored under it yet
    std::optional<std::string> curImageURL;
    std::optional<std::string> curVideoId;
    std::shared_ptr<VODInnerFileInfo> curInnerFileInfo;  // identity of the file (resume cache, reports)
};

}  // namespace quorvane
