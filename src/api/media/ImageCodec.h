#pragma once
// Still images on libvips: decoding with the EXIF orientation applied, redrawing at a size, and
// JPEG encoding. Large pictures stream: a JPEG is shrunk while it is decoded, so a 40-megapixel
// photo never sits in memory as full-size pixels.
#include <optional>
#include <string>

#include "platform/image.h"

namespace quorvane::media {

// The picture the bytes hold, sized upright (a photo taken sideways reports its turned size);
// null when the bytes are not an image libvips can read.
platform::ImagePtr decodeImage(const std::string& data);
// The picture redrawn upright at exactly width × height pixels (fractions rounded up, one pixel per
// point), kept lossless (PNG, alpha included); null when the picture cannot be decoded.
platform::ImagePtr drawImage(const platform::ImagePtr& image, double width, double height);
// JPEG bytes at `quality` (0...1); transparent pixels are flattened onto black as the phone's
// encoder does. nullopt when the picture cannot be decoded.
std::optional<std::string> jpegRepresentation(const platform::ImagePtr& image, double quality);
// The last libvips failure on this thread, for log lines.
std::string lastImageError();

}  // namespace quorvane::media
