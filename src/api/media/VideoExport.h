#pragma once
// Movie export to MPEG-4 with FFmpeg's libraries, in the manner of an export session: a preset, an
// output file, an optional time limit, and a final status.
#include <string>

namespace quorvane::media {

enum class ExportPreset {
    // The streams as they are (the camera's own cut at its time limit).
    Passthrough,
    // Full size and quality: streams MP4 can hold are copied untouched, others re-encoded.
    HighestQuality,
    // Re-encoded to fit 568 × 320 (or 320 × 568), at a lower quality.
    MediumQuality,
};

// The export session's statuses.
enum ExportSessionStatus {
    ExportSessionStatusUnknown = 0,
    ExportSessionStatusWaiting = 1,
    ExportSessionStatusExporting = 2,
    ExportSessionStatusCompleted = 3,
    ExportSessionStatusFailed = 4,
    ExportSessionStatusCancelled = 5,
};

struct ExportOutcome {
    ExportSessionStatus status = ExportSessionStatusUnknown;
    std::string error;  // why it failed; "" when completed
};

// Writes `output` (MP4, index at the front for network playback) from `input`. With `maxSeconds`
// above 0 only that much of the start is kept. A failed export leaves no output file.
ExportOutcome exportVideo(const std::string& input, const std::string& output, ExportPreset preset,
                          double maxSeconds = 0);
// The name of the video encoder a re-encoding export uses: "libx264" when FFmpeg has it, else "mpeg4".
std::string videoEncoderName();

}  // namespace quorvane::media
