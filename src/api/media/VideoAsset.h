#pragma once
// Facts of a movie file read with FFmpeg, as an asset reports them: the first video track's size
// after its display transform, and the duration in whole seconds rounded up.
#include <optional>
#include <string>

#include "foundation/value.h"

namespace quorvane::media {

struct VideoFacts {
    float width = 0;   // upright: a portrait recording reports its upright width
    float height = 0;
    long long duration = 0;  // seconds, rounded up
};

// nullopt when the file cannot be opened or holds no video track.
std::optional<VideoFacts> readVideoFacts(const std::string& path);
// The 6-key video dictionary of the file: path, size ("%.0f" kilobytes), duration, type, width, height.
std::optional<Value> videoDictionary(const std::string& path);

}  // namespace quorvane::media
