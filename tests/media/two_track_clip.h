#pragma once
// A movie with two video tracks, for what "the first video track" means.
#include <string>

#include "support/media_files.h"

namespace quorvane::testing {

// Muxes `first` and `second` (each written with test::writeClip next to `path`) into one MP4 at
// `path`, in that order. Only the second track is marked as the default one, so a reader that looks
// for the "best" track picks it, not the first.
bool writeTwoTrackClip(const std::string& path, const test::ClipSpec& first, const test::ClipSpec& second);

}  // namespace quorvane::testing
