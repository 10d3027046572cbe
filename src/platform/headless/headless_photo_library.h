#pragma once
// A photo library in memory: keeps every image it is asked to store, or refuses when access has
// been denied, as a library without permission does.
#include <mutex>
#include <vector>

#include "platform/photo_library.h"

namespace quorvane::platform::headless {

class HeadlessPhotoLibrary : public PhotoLibrary {
public:
    // Completes on the shared worker pool, not on the caller's thread.
    void creationRequestForAssetFromImage(ImagePtr image, Completion completion) override;
    void setAccessDenied(bool denied);
    std::vector<ImagePtr> savedImages() const;
    int requests() const;
private:
    mutable std::mutex mutex_;
    bool denied_ = false;
    int requests_ = 0;
    std::vector<ImagePtr> saved_;
};

}  // namespace quorvane::platform::headless
