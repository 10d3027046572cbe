#include "platform/headless/headless_photo_library.h"

#include "foundation/dispatch.h"

namespace quorvane::platform::headless {

// The library's own code for an operation without authorisation.
constexpr long long kPHPhotosErrorAccessUserDenied = 3311;

void HeadlessPhotoLibrary::creationRequestForAssetFromImage(ImagePtr image, Completion completion) {
    bool stored = false;
    {
        std::lock_guard lock(mutex_);
        ++requests_;
        if (!denied_ && image) {
            saved_.push_back(image);
            stored = true;
        }
    }
    std::optional<Error> error;
    if (!stored) error = Error("PHPhotosErrorDomain", kPHPhotosErrorAccessUserDenied, "The operation couldn't be completed.");
    foundation::dispatch::global().async([completion = std::move(completion), stored, error] {
        if (completion) completion(stored, error);
    });
}

void HeadlessPhotoLibrary::setAccessDenied(bool denied) {
    std::lock_guard lock(mutex_);
    denied_ = denied;
}

std::vector<ImagePtr> HeadlessPhotoLibrary::savedImages() const {
    std::lock_guard lock(mutex_);
    return saved_;
}

int HeadlessPhotoLibrary::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

}  // namespace quorvane::platform::headless
