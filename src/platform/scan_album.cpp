#include "platform/scan_album.h"

namespace quorvane::platform {
namespace {
std::mutex currentMutex;

// A device without a photo library to choose from.
class UnavailableScanAlbum : public ScanAlbum {
public:
    bool isSourceTypeAvailable() const override { return false; }
    std::shared_ptr<ScanImagePicker> makeImagePicker() override { return nullptr; }
};

std::shared_ptr<ScanAlbum>& currentSlot() {
    static std::shared_ptr<ScanAlbum> album;
    return album;
}
}  // namespace

bool ScanImagePicker::allowsEditing() const {
    std::lock_guard lock(mutex_);
    return allowsEditing_;
}

void ScanImagePicker::setAllowsEditing(bool allowsEditing) {
    std::lock_guard lock(mutex_);
    allowsEditing_ = allowsEditing;
}

int ScanImagePicker::modalPresentationStyle() const {
    std::lock_guard lock(mutex_);
    return style_;
}

void ScanImagePicker::setModalPresentationStyle(int style) {
    std::lock_guard lock(mutex_);
    style_ = style;
}

std::shared_ptr<ScanImagePickerDelegate> ScanImagePicker::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
}

void ScanImagePicker::setDelegate(std::weak_ptr<ScanImagePickerDelegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

void ScanImagePicker::finishPicking(PickedMediaInfo info) {
    if (auto target = delegate()) target->imagePickerController(*this, info);
}

void ScanImagePicker::cancel() {
    if (auto target = delegate()) target->imagePickerControllerDidCancel(*this);
}

std::shared_ptr<ScanAlbum> ScanAlbum::current() {
    std::lock_guard lock(currentMutex);
    auto& slot = currentSlot();
    if (!slot) slot = std::make_shared<UnavailableScanAlbum>();
    return slot;
}

void ScanAlbum::setCurrent(std::shared_ptr<ScanAlbum> album) {
    std::lock_guard lock(currentMutex);
    currentSlot() = std::move(album);
}

}  // namespace quorvane::platform
