#include "VODUpload/src/VODFileUpload.h"

#include "VODUpload/src/VODLog.h"

namespace quorvane {

const char* VODFileUpload::name(Step step) {
    switch (step) {
    case Step::Picked: return "picked";
    case Step::Registering: return "registering";
    case Step::Initiating: return "initiating";
    case Step::Uploading: return "uploading";
    case Step::Succeeded: return "succeeded";
    case Step::Failed: return "failed";
    case Step::Cancelled: return "cancelled";
    }
    return "?";
}

void VODFileUpload::moveTo(Step next) {
    if (next == step_) return;
    if (vodLogEnabled())
        vodLogDebug("VODUpload/src/VODFileUpload", std::string("file ") + (entry ? entry->filePath : std::string()) +
                                                       ": " + name(step_) + " -> " + name(next));
    step_ = next;
}

}  // namespace quorvane
