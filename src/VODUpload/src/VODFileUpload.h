#pragma once
// One file's way through the engine, from the moment `next` picks it to its end: the queue entry, what
// the steps learnt of it (its identity, upload id, video id), the step it is at, and which of its
// requests is the one whose answer counts. `next` makes a new one for every file, so nothing of a file
// carries over to the next.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODUploadModel.h"
#include "oss/oss_local_file.h"

namespace quorvane {

class VODFileUpload {
public:
    enum class Step {
        Picked,       // taken from the queue
        Registering,  // create-upload (or refresh) at the video service
        Initiating,   // the upload id: recorded, initiated, or none for a single put
        Uploading,    // the parts, or the single put
        Succeeded,
        Failed,
        Cancelled,
    };

    // `entry` is null when the queue had no Ready file: an upload that does nothing.
    explicit VODFileUpload(std::shared_ptr<UploadFileInfo> entry) : entry(std::move(entry)) {}

    Step step() const { return step_; }
    // The one place the step changes; each change is logged with the file's path.
    void moveTo(Step next);
    static const char* name(Step step);

    // Every request this upload sends takes a new ticket; only the answer to the newest counts. A
    // request that pause, stop or deleteFile cancelled answers later, when a resumed request of the
    // same file, or another file, may already be under way.
    std::uint64_t newRequest() { return ++requests_; }
    bool answers(std::uint64_t ticket) const { return ticket == requests_; }

    const std::shared_ptr<UploadFileInfo> entry;
    std::optional<std::string> uploadId;
    bool uploadIdIsNew = false;       // initiated by this upload: nothing stored under it yet
    bool uploadIdFromRecord = false;  // taken over from the record an earlier run left
    std::optional<std::string> curImageURL;
    std::optional<std::string> curVideoId;
    std::shared_ptr<VODInnerFileInfo> innerFileInfo;  // identity of the file (resume cache, reports)
    // The file as this upload first looked at it (once; absent when it could not be, and the upload
    // reports why): its size sets the part size, and the record of an earlier run must fit it.
    std::optional<oss::OSSLocalFile> file;
    // A direct upload holds the file to that state: every (re)start of the upload fails if the file is
    // no longer so. A video-service file is looked at only once its address arrived.
    bool fileStateHeld = false;
    // The file goes up as one PutObject (no larger than a part): no upload id, nothing to resume.
    bool wholeFilePut = false;

private:
    Step step_ = Step::Picked;
    std::uint64_t requests_ = 0;
};

}  // namespace quorvane
