#include "platform/photo_library.h"

#include <mutex>

#include "foundation/dispatch.h"

namespace quorvane::platform {
namespace {
std::mutex sharedMutex;
constexpr long long kPHPhotosErrorAccessRestricted = 3310;

// No library to store in: every request fails, from a worker thread as a real library answers.
class UnavailablePhotoLibrary : public PhotoLibrary {
public:
    void creationRequestForAssetFromImage(ImagePtr, Completion completion) override {
        if (!completion) return;
        foundation::dispatch::global().async([completion = std::move(completion)] {
            completion(false, Error("PHPhotosErrorDomain", kPHPhotosErrorAccessRestricted, "This device has no photo library."));
        });
    }
};

std::shared_ptr<PhotoLibrary>& sharedSlot() {
    static std::shared_ptr<PhotoLibrary> library;
    return library;
}
}  // namespace

std::shared_ptr<PhotoLibrary> PhotoLibrary::sharedPhotoLibrary() {
    std::lock_guard lock(sharedMutex);
    auto& slot = sharedSlot();
    if (!slot) slot = std::make_shared<UnavailablePhotoLibrary>();
    return slot;
}

void PhotoLibrary::setSharedPhotoLibrary(std::shared_ptr<PhotoLibrary> library) {
    std::lock_guard lock(sharedMutex);
    sharedSlot() = std::move(library);
}

}  // namespace quorvane::platform
