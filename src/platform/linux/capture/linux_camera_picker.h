#pragma once
// The camera screen (UIImagePickerController with the camera source) on the Linux camera: a photo
// is the input's first picture, encoded as PNG at the input's size. An input without pictures ends
// the screen as a cancel. Movies, the album picker and the library are the wrapped picker's.
#include <memory>
#include <string>

#include "platform/media_picker.h"

namespace quorvane::platform::linux_capture {

class LinuxCaptureCamera;

class LinuxCameraPicker : public MediaPicker {
public:
    LinuxCameraPicker(std::shared_ptr<LinuxCaptureCamera> camera, std::shared_ptr<MediaPicker> others);

    bool isSourceTypeAvailable(int sourceType) const override;
    void startCamera(const CameraSettings& settings, std::weak_ptr<CameraDelegate> delegate) override;
    void startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) override;
    std::optional<std::string> requestImageData(const MediaAsset& asset) override;
    std::optional<std::string> requestPlayableVideo(const MediaAsset& asset) override;
    // The picker that serves everything but the camera.
    std::shared_ptr<MediaPicker> others() const { return others_; }

private:
    std::shared_ptr<LinuxCaptureCamera> camera_;
    std::shared_ptr<MediaPicker> others_;
};

}  // namespace quorvane::platform::linux_capture
