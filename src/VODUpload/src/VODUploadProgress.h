#pragma once
// What one progress call of a file's upload means: the part it reached, and which of the upload events
// it owes. Byte counts in, decisions out; the engine sends them. Keeps the last part seen, so one
// value follows one upload request.
#include <cstdint>

namespace quorvane {

class VODUploadProgress {
public:
    explicit VODUploadProgress(std::int32_t partSize) : partSize_(partSize) {}

    struct Step {
        int partNumber = 0;
        bool partDone = false;    // event 20007: a part (or the file) went up while no retry was owed
        bool partBegun = false;   // event 20005: the upload began, or moved into another part
        // The share of the file this call's bytes make, in hundredths (the service's progress report).
        float ratio = 0.0f;
    };

    Step advance(std::int64_t bytesSent, std::int64_t totalSent, std::int64_t totalExpected, bool retrying) {
        Step step;
        step.partNumber = partSize_ != 0 ? static_cast<int>(totalSent / partSize_) : 0;
        const bool movedOn = step.partNumber != lastPartNumber_;
        step.partDone = (totalSent >= totalExpected || movedOn) && bytesSent != 0 && !retrying;
        step.partBegun = totalSent == 0 || movedOn;
        step.ratio = totalExpected > 0 ? static_cast<float>(bytesSent * 100 / totalExpected) / 100.0f : 0.0f;
        lastPartNumber_ = step.partNumber;
        return step;
    }

    std::int32_t partSize() const { return partSize_; }

private:
    std::int32_t partSize_;
    int lastPartNumber_ = 0;
};

}  // namespace quorvane
