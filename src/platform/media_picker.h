#pragma once
// The camera (UIImagePickerController with the camera source), the multi-selection album picker
// (BSImagePicker) and the photo library's asset data (PHImageManager). Installed on its own, like
// the photo library, by a platform family; without one no source is available.
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/presenter.h"

namespace quorvane::platform {

enum ImagePickerControllerSourceType { SourceTypePhotoLibrary = 0, SourceTypeCamera = 1, SourceTypeSavedPhotosAlbum = 2 };
enum ImagePickerControllerCameraDevice { CameraDeviceRear = 0, CameraDeviceFront = 1 };
enum ImagePickerControllerQualityType { QualityTypeHigh = 0, QualityTypeMedium = 1, QualityTypeLow = 2 };
enum ModalPresentationStyle { ModalPresentationFullScreen = 0, ModalPresentationPageSheet = 1 };

inline constexpr const char* kUTTypeImage = "public.image";
inline constexpr const char* kUTTypeMovie = "public.movie";

// What the camera screen is asked to capture.
struct CameraSettings {
    int sourceType = SourceTypeCamera;
    std::vector<std::string> mediaTypes{kUTTypeImage};
    int cameraDevice = CameraDeviceRear;
    double videoMaximumDuration = 600;  // seconds
    int videoQuality = QualityTypeMedium;
    bool allowsEditing = false;
};

// What the camera took: the photo's encoded bytes, or the file of the recorded movie (which the
// receiver owns from then on).
struct CameraCapture {
    std::optional<std::string> imageData;
    std::optional<std::string> mediaURL;
};

class CameraDelegate {
public:
    virtual ~CameraDelegate() = default;
    virtual void didFinishPickingMedia(const CameraCapture& capture) = 0;
    virtual void didCancel() = 0;
};

enum class AssetMediaType { Image = 1, Video = 2 };

// A photo-library asset (PHAsset).
struct MediaAsset {
    std::string localIdentifier;
    AssetMediaType mediaType = AssetMediaType::Image;
    double duration = 0;  // seconds; 0 for images
    bool operator==(const MediaAsset& other) const { return localIdentifier == other.localIdentifier; }
};

// The album picker's settings: how many assets may be selected and which kind is shown.
struct AlbumPickerSettings {
    int maxNumberOfSelections = 1;
    std::vector<AssetMediaType> fetchMediaTypes{AssetMediaType::Image};
};

// The multi-selection album picker. The façade sets its look and callbacks, presents it, and may
// deselect an asset; the user (the picker service) selects, deselects, cancels and finishes.
class AlbumPickerController : public ViewController {
public:
    using AssetCallback = std::function<void(const MediaAsset&)>;
    using AssetsCallback = std::function<void(const std::vector<MediaAsset>&)>;

    AlbumPickerSettings settings;
    std::vector<MediaAsset> selectedAssets;  // preselection
    int modalPresentationStyle = ModalPresentationFullScreen;
    std::string doneButtonTitle;
    std::optional<std::string> cancelButtonImage;
    AssetCallback onSelect, onDeselect;
    AssetsCallback onCancel, onFinish;

    // Drops `asset` from the selection (the façade's answer to a selection it refuses).
    void deselect(const MediaAsset& asset);
    // The user's gestures. Selecting beyond the maximum or an asset of a kind not shown is ignored
    // (false). Finish and cancel hand over the selection in selection order.
    bool userSelect(const MediaAsset& asset);
    bool userDeselect(const MediaAsset& asset);
    void userCancel();
    void userFinish();
    std::vector<MediaAsset> selection() const;
    // A HUD on the picker's own view, and every one shown there.
    std::shared_ptr<Hud> showHUD();
    std::vector<std::shared_ptr<Hud>> huds() const;

private:
    mutable std::mutex mutex_;
    std::vector<MediaAsset> selection_;
    std::vector<std::shared_ptr<Hud>> huds_;
};

class MediaPicker {
public:
    virtual ~MediaPicker() = default;
    virtual bool isSourceTypeAvailable(int sourceType) const = 0;
    // The camera screen is on; it later tells `delegate` what was taken, or that the user closed it.
    virtual void startCamera(const CameraSettings& settings, std::weak_ptr<CameraDelegate> delegate) = 0;
    // The album picker is on screen; the user drives it from here on.
    virtual void startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) = 0;
    // The asset's image bytes (synchronous request); nullopt when the library has none.
    virtual std::optional<std::string> requestImageData(const MediaAsset& asset) = 0;
    // A readable file holding the video asset; nullopt when it cannot be had.
    virtual std::optional<std::string> requestPlayableVideo(const MediaAsset& asset) = 0;

    // The installed picker; one with no source until a family installs one (nullptr restores it).
    // Never null. Safe from any thread.
    static std::shared_ptr<MediaPicker> current();
    static void setCurrent(std::shared_ptr<MediaPicker> picker);
};

}  // namespace quorvane::platform
