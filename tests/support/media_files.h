#pragma once
// Real media files for tests, written with FFmpeg's encoders so the code under test reads what a phone
// would hand it.
#include <cstdint>
#include <string>

namespace quorvane::test {

// What a test clip's frames show.
enum class ClipPicture {
    Noise,     // random pixels (fixed seed): barely compressible, so the file is large
    Gradient,  // a luma ramp that moves each frame, grey chroma
    Pattern,   // a busy luma texture with slowly shifting chroma
};

struct ClipSpec {
    int width = 320;
    int height = 240;
    int fps = 25;
    int frames = 25;
    int rotation = 0;       // degrees, stored as the track's display matrix
    int64_t bitRate = 0;    // 0 leaves the encoder's default
    int keyframeEvery = 0;  // 0 leaves the encoder's default
    bool preferH264 = false;  // libx264 when FFmpeg has it, else MPEG-4 part 2
    ClipPicture picture = ClipPicture::Noise;
};

// Writes an MP4 clip as `spec` says; false when an FFmpeg step fails (a partial file may stay).
bool writeClip(const std::string& path, const ClipSpec& spec);
// A baseline JPEG of random pixels (width x height); false when an FFmpeg step fails.
bool writeJpeg(const std::string& path, int width, int height);

}  // namespace quorvane::test
