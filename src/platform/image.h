#pragma once
// A decoded image (UIImage): its pixel size and the encoded bytes it was made from, which is what a
// photo library or a share sheet stores.
#include <memory>
#include <string>

namespace quorvane::platform {

struct Image {
    int width = 0;
    int height = 0;
    std::string format;   // the decoder's name for the encoding: "mjpeg", "png", ...
    std::string data;     // the encoded bytes
};

using ImagePtr = std::shared_ptr<const Image>;

}  // namespace quorvane::platform
