#include "api/media/CaptureViewController.h"

#include "api/media/ImageCodec.h"

namespace quorvane {

void CaptureViewController::viewDidLoad() {
    platform::MediaPicker::current()->startCamera(settings_, weak_from_this());
}

void CaptureViewController::dismissThen(std::function<void()> next) {
    if (auto presenter = presentingController()) presenter->dismiss(true, std::move(next));
    else next();
}

void CaptureViewController::didFinishPickingMedia(const platform::CameraCapture& capture) {
    auto self = shared_from_this();  // the blocks may drop the last owner
    dismissThen([self, capture] {
        if (capture.mediaURL) {
            if (self->captureVideoUrlBlock_) self->captureVideoUrlBlock_(*capture.mediaURL);
        } else if (self->captureBlock_) {
            self->captureBlock_(media::decodeImage(capture.imageData.value_or("")));
        }
    });
}

void CaptureViewController::didCancel() {
    auto self = shared_from_this();
    dismissThen([self] {
        if (self->cancelBlock_) self->cancelBlock_();
    });
}

}  // namespace quorvane
