#include "api/media/ImageTool.h"

#include "api/media/ImageCodec.h"
#include "foundation/temp_files.h"

namespace quorvane {

std::optional<std::string> ImageTool::getImageFromPHAsset(const platform::MediaAsset& asset) {
    return platform::MediaPicker::current()->requestImageData(asset);
}

std::optional<std::string> ImageTool::compressImage(const std::string& data, double compression) {
    return media::jpegRepresentation(media::decodeImage(data), compression);
}

std::string ImageTool::saveImage(const std::string& data) {
    // The temporary directory ends with '/', so the name is simply appended.
    std::string path = foundation::temporaryDirectory() + foundation::globallyUniqueString() + ".jpg";
    // Synced: the caller may have no other copy of these bytes.
    foundation::writeFileAtomically(path, data, foundation::Durability::PowerLoss);
    return path;
}

}  // namespace quorvane
