#pragma once
// Media facts of a video file (the asset), read with libavformat. Every operation uses the file's
// first video track (first audio track for the audio duration); an unreadable file, a missing track
// or a file whose extension names no video, audio or image type gives zeros.
#include <string>

namespace quorvane {

struct AVCVSize {
    double width = 0;
    double height = 0;
};

class AVCVAssetInfo {
public:
    // The track's natural size, width and height swapped when its display matrix is a quarter turn.
    static AVCVSize AVCVNaturalSize(const std::string& asset);
    // The nominal frame rate (frames per second).
    static float AVCVFrameRate(const std::string& asset);
    // The estimated data rate in bits per second.
    static float AVCVBitrate(const std::string& asset);
    // The file's duration in seconds.
    static float AVCVDuration(const std::string& asset);
    // The end of the first video track's time range (start plus duration), in seconds.
    static float AVCVVideoDuration(const std::string& asset);
    // The same for the first audio track.
    static float AVCVAudioDuration(const std::string& asset);
};

// Keeps FFmpeg's own log lines off standard error, from now or from when the format library is
// loaded (it is loaded the first time a media file's facts are read).
void silenceMediaFormatLibrary();

}  // namespace quorvane
