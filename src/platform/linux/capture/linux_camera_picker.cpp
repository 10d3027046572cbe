#include "platform/linux/capture/linux_camera_picker.h"

#include <algorithm>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "platform/linux/capture/frame_converter.h"
#include "platform/linux/capture/linux_capture_camera.h"
#include "platform/linux/capture/media_input.h"

namespace quorvane::platform::linux_capture {

using foundation::ffmpeg::FramePtr;

namespace {

// The input's first picture, encoded; nullopt when it has none.
std::optional<std::string> takePhoto(const std::string& url) {
    OpenFailure failure;
    auto input = MediaInput::open(url, MediaInput::Kind::Video, &failure);
    if (!input) {
        foundation::logLine("camera " + url + " cannot be opened: " + failure.message);
        return std::nullopt;
    }
    FramePtr picture(av_frame_alloc());
    if (!picture || input->next(picture.get()) != MediaInput::Read::Frame) {
        foundation::logLine("camera " + url + " gave no picture: " + input->endReason());
        return std::nullopt;
    }
    return encodePng(*picture);
}

}  // namespace

LinuxCameraPicker::LinuxCameraPicker(std::shared_ptr<LinuxCaptureCamera> camera, std::shared_ptr<MediaPicker> others)
    : camera_(std::move(camera)), others_(std::move(others)) {}

bool LinuxCameraPicker::isSourceTypeAvailable(int sourceType) const {
    if (sourceType == SourceTypeCamera) return camera_->isAvailable();
    return others_->isSourceTypeAvailable(sourceType);
}

void LinuxCameraPicker::startCamera(const CameraSettings& settings, std::weak_ptr<CameraDelegate> delegate) {
    bool movie = std::find(settings.mediaTypes.begin(), settings.mediaTypes.end(), kUTTypeMovie) !=
                 settings.mediaTypes.end();
    if (movie || settings.sourceType != SourceTypeCamera) return others_->startCamera(settings, std::move(delegate));
    // Opening a device and waiting for its first picture takes a while: off the main thread.
    foundation::dispatch::global().async([url = camera_->url(), delegate = std::move(delegate)] {
        auto photo = takePhoto(url);
        foundation::dispatch::main().async([photo = std::move(photo), delegate] {
            auto target = delegate.lock();
            if (!target) return;
            if (photo) target->didFinishPickingMedia(CameraCapture{photo, std::nullopt});
            else target->didCancel();
        });
    });
}

void LinuxCameraPicker::startAlbumPicker(std::shared_ptr<AlbumPickerController> picker) {
    others_->startAlbumPicker(std::move(picker));
}

std::optional<std::string> LinuxCameraPicker::requestImageData(const MediaAsset& asset) {
    return others_->requestImageData(asset);
}

std::optional<std::string> LinuxCameraPicker::requestPlayableVideo(const MediaAsset& asset) {
    return others_->requestPlayableVideo(asset);
}

}  // namespace quorvane::platform::linux_capture
