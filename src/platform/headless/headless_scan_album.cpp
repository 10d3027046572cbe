#include "platform/headless/headless_scan_album.h"

namespace quorvane::platform::headless {

void HeadlessScanAlbum::setSourceTypeAvailable(bool available) {
    std::lock_guard lock(mutex_);
    available_ = available;
}

std::vector<std::shared_ptr<ScanImagePicker>> HeadlessScanAlbum::pickers() const {
    std::lock_guard lock(mutex_);
    return pickers_;
}

bool HeadlessScanAlbum::isSourceTypeAvailable() const {
    std::lock_guard lock(mutex_);
    return available_;
}

std::shared_ptr<ScanImagePicker> HeadlessScanAlbum::makeImagePicker() {
    auto picker = std::make_shared<ScanImagePicker>();
    std::lock_guard lock(mutex_);
    pickers_.push_back(picker);
    return picker;
}

}  // namespace quorvane::platform::headless
