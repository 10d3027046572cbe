#pragma once
// The photo library (PHPhotoLibrary): a change that stores an image as a new asset.
#include <functional>
#include <memory>
#include <optional>

#include "foundation/error.h"
#include "platform/image.h"

namespace quorvane::platform {

class PhotoLibrary {
public:
    using Completion = std::function<void(bool success, const std::optional<Error>& error)>;
    virtual ~PhotoLibrary() = default;
    // Creates an asset from `image`; `completion` runs once, on a thread of the library's own.
    virtual void creationRequestForAssetFromImage(ImagePtr image, Completion completion) = 0;

    // The shared library; one that refuses every change until a family installs one (nullptr
    // restores it). Never null. Safe from any thread.
    static std::shared_ptr<PhotoLibrary> sharedPhotoLibrary();
    static void setSharedPhotoLibrary(std::shared_ptr<PhotoLibrary> library);
};

}  // namespace quorvane::platform
