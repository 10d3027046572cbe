#include "platform/linux/capture/linux_capture.h"

#include "platform/linux/capture/capture_privacy.h"
#include "platform/linux/capture/linux_camera_picker.h"
#include "platform/media_picker.h"
#include "platform/permissions.h"

namespace quorvane::platform::linux_capture {

LinuxCapture installLinuxCapture(const CaptureInputs& inputs) {
    LinuxCapture capture{std::make_shared<LinuxMicrophone>(inputs.microphone), std::make_shared<LinuxRecordingClock>(),
                         std::make_shared<LinuxCaptureCamera>(inputs.camera)};
    Microphone::setCurrent(capture.microphone);
    RecordingClock::setCurrent(capture.clock);
    CaptureCamera::setCurrent(capture.camera);
    MediaPicker::setCurrent(std::make_shared<LinuxCameraPicker>(capture.camera, MediaPicker::current()));
    auto privacy = PrivacyServices::current();
    privacy.authority = std::make_shared<CapturePrivacyAuthority>(privacy.authority, capture.microphone, capture.camera);
    PrivacyServices::setCurrent(privacy);
    return capture;
}

}  // namespace quorvane::platform::linux_capture
