#pragma once
// Real media for the short-video tests, written with FFmpeg's encoders.
#include <string>

namespace quorvane::test {

// A baseline JPEG of random pixels (width x height); false when an FFmpeg step fails.
bool writeJpeg(const std::string& path, int width, int height);
// An MPEG-4 part 2 clip in MP4, 320x240 at 25 fps; false when an FFmpeg step fails.
bool writeClip(const std::string& path, int frames);

}  // namespace quorvane::test
