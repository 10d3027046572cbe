#include "platform/media_picker.h"

#include <algorithm>

#include "foundation/dispatch.h"

namespace quorvane::platform {

void AlbumPickerController::deselect(const MediaAsset& asset) {
    std::lock_guard lock(mutex_);
    std::erase(selection_, asset);
}

bool AlbumPickerController::userSelect(const MediaAsset& asset) {
    {
        std::lock_guard lock(mutex_);
        const auto& shown = settings.fetchMediaTypes;
        if (std::find(shown.begin(), shown.end(), asset.mediaType) == shown.end()) return false;
        if (static_cast<int>(selection_.size()) >= settings.maxNumberOfSelections) return false;
        if (std::find(selection_.begin(), selection_.end(), asset) != selection_.end()) return false;
        selection_.push_back(asset);
    }
    if (onSelect) onSelect(asset);
    return true;
}

bool AlbumPickerController::userDeselect(const MediaAsset& asset) {
    {
        std::lock_guard lock(mutex_);
        auto it = std::find(selection_.begin(), selection_.end(), asset);
        if (it == selection_.end()) return false;
        selection_.erase(it);
    }
    if (onDeselect) onDeselect(asset);
    return true;
}

void AlbumPickerController::userCancel() {
    if (onCancel) onCancel(selection());
}

void AlbumPickerController::userFinish() {
    if (onFinish) onFinish(selection());
}

std::vector<MediaAsset> AlbumPickerController::selection() const {
    std::lock_guard lock(mutex_);
    return selection_;
}

std::shared_ptr<Hud> AlbumPickerController::showHUD() {
    auto hud = std::make_shared<Hud>();
    hud->setRemoveFromSuperViewOnHide(true);
    std::lock_guard lock(mutex_);
    huds_.push_back(hud);
    return hud;
}

std::vector<std::shared_ptr<Hud>> AlbumPickerController::huds() const {
    std::lock_guard lock(mutex_);
    return huds_;
}

namespace {
std::mutex slotMutex;

// A device without a camera or a photo library: a screen that is started anyway closes as a
// cancel, on the main loop, as the user's answer would come.
class UnavailableMediaPicker : public MediaPicker {
public:
    bool isSourceTypeAvailable(int) const override { return false; }
    void startCamera(const CameraSettings&, std::weak_ptr<CameraDelegate> delegate) override {
        foundation::dispatch::main().async([delegate] {
            if (auto target = delegate.lock()) target->didCancel();
        });
    }
    void startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) override {
        foundation::dispatch::main().async([picker] { picker->userCancel(); });
    }
    std::optional<std::string> requestImageData(const MediaAsset&) override { return std::nullopt; }
    std::optional<std::string> requestPlayableVideo(const MediaAsset&) override { return std::nullopt; }
};

std::shared_ptr<MediaPicker>& slot() {
    static std::shared_ptr<MediaPicker> picker;
    return picker;
}
}  // namespace

std::shared_ptr<MediaPicker> MediaPicker::current() {
    std::lock_guard lock(slotMutex);
    auto& picker = slot();
    if (!picker) picker = std::make_shared<UnavailableMediaPicker>();
    return picker;
}

void MediaPicker::setCurrent(std::shared_ptr<MediaPicker> picker) {
    std::lock_guard lock(slotMutex);
    slot() = std::move(picker);
}

}  // namespace quorvane::platform
