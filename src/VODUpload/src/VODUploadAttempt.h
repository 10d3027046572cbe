#pragma once
// What the engine knows of the file it is uploading now, beyond the file's own entry: made empty
// when `next` picks a file, filled as the steps answer, and never carried over to the next file.
#include <memory>
#include <optional>
#include <string>

#include "VODUpload/src/VODInnerFileInfo.h"
#include "oss/oss_local_file.h"
#include "oss/oss_requests.h"

namespace quorvane {

struct VODUploadAttempt {
    std::optional<std::string> uploadId;
    bool uploadIdIsNew = false;  // initiated by this attempt: nothing stored under it yet
    bool uploadIdFromRecord = false;  // taken over from the record an earlier run left
    std::optional<std::string> curImageURL;
    std::optional<std::string> curVideoId;
    std::shared_ptr<VODInnerFileInfo> curInnerFileInfo;  // identity of the file (resume cache, reports)
    // The file as this attempt first looked at it (once; absent when it could not be, and the upload
    // reports why): its size sets the part size, and the record of an earlier run must fit it.
    std::optional<oss::OSSLocalFile> file;
    // A direct upload holds the file to that state: every (re)start of the upload fails if the file is
    // no longer so. A video-service file is looked at only once its address arrived.
    bool fileStateHeld = false;
    // The file goes up as one PutObject (no larger than a part): no upload id, nothing to resume.
    bool wholeFilePut = false;
};

}  // namespace quorvane
