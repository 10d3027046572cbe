#pragma once
// Turns downloaded bytes into an image (UIImage imageWithData:), on FFmpeg's still-image decoders.
#include <string>

#include "platform/image.h"

namespace quorvane {

// The image the bytes hold (JPEG, PNG, GIF, WebP, BMP, TIFF...), decoded for real so that a page of
// HTML or a truncated file gives null; null for anything that is not a still image.
platform::ImagePtr imageWithData(const std::string& data);

}  // namespace quorvane
