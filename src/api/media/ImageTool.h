#pragma once
// Library images: their bytes, JPEG re-encoding, and a plain temporary copy.
#include <optional>
#include <string>

#include "platform/media_picker.h"

namespace quorvane {

class ImageTool {
public:
    // The asset's current image bytes, asked synchronously; nullopt when none came back.
    static std::optional<std::string> getImageFromPHAsset(const platform::MediaAsset& asset);
    // The picture re-encoded as JPEG at `compression` (0...1); nullopt when it cannot be decoded.
    static std::optional<std::string> compressImage(const std::string& data, double compression);
    // Writes the bytes atomically to <temporary directory><unique>.jpg (not under "media"); the path.
    static std::string saveImage(const std::string& data);
};

}  // namespace quorvane
