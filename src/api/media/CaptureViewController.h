#pragma once
// The camera screen: a picker controller that is its own delegate. It dismisses itself before it
// hands over what was taken, or the cancel.
#include <functional>
#include <memory>
#include <string>

#include "platform/image.h"
#include "platform/media_picker.h"

namespace quorvane {

class CaptureViewController : public platform::ViewController,
                              public platform::CameraDelegate,
                              public std::enable_shared_from_this<CaptureViewController> {
public:
    using CaptureBlock = std::function<void(const platform::ImagePtr& image)>;
    using CancelBlock = std::function<void()>;
    using CaptureVideoBlock = std::function<void()>;
    using CaptureVideoUrlBlock = std::function<void(const std::string& fileURL)>;

    platform::CameraSettings& settings() { return settings_; }
    int modalPresentationStyle() const { return modalPresentationStyle_; }
    void setModalPresentationStyle(int style) { modalPresentationStyle_ = style; }

    void setCaptureBlock(CaptureBlock block) { captureBlock_ = std::move(block); }
    void setCancelBlock(CancelBlock block) { cancelBlock_ = std::move(block); }
    // Declared for hosts; nothing sets or calls it.
    void setCaptureVideoBlock(CaptureVideoBlock block) { captureVideoBlock_ = std::move(block); }
    void setCaptureVideoUrlBlock(CaptureVideoUrlBlock block) { captureVideoUrlBlock_ = std::move(block); }

    // The screen is up: the camera starts with this controller as its delegate.
    void viewDidLoad();

    // The picture is decoded from the camera's bytes (null when they hold none).
    void didFinishPickingMedia(const platform::CameraCapture& capture) override;
    void didCancel() override;

private:
    void dismissThen(std::function<void()> next);

    platform::CameraSettings settings_;
    int modalPresentationStyle_ = platform::ModalPresentationFullScreen;
    CaptureBlock captureBlock_;
    CancelBlock cancelBlock_;
    CaptureVideoBlock captureVideoBlock_;
    CaptureVideoUrlBlock captureVideoUrlBlock_;
};

}  // namespace quorvane
