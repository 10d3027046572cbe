#include "platform/photo_library.h"

#include <mutex>

#include "platform/headless/headless_photo_library.h"

namespace quorvane::platform {
namespace {
std::mutex sharedMutex;
std::shared_ptr<PhotoLibrary>& sharedSlot() {
    static std::shared_ptr<PhotoLibrary> library;
    return library;
}
}  // namespace

std::shared_ptr<PhotoLibrary> PhotoLibrary::sharedPhotoLibrary() {
    std::lock_guard lock(sharedMutex);
    auto& slot = sharedSlot();
    if (!slot) slot = std::make_shared<headless::HeadlessPhotoLibrary>();
    return slot;
}

void PhotoLibrary::setSharedPhotoLibrary(std::shared_ptr<PhotoLibrary> library) {
    std::lock_guard lock(sharedMutex);
    sharedSlot() = std::move(library);
}

}  // namespace quorvane::platform
