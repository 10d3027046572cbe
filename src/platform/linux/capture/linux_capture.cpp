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
    // A second install replaces the first one's devices rather than wrapping them.
    auto pickers = MediaPicker::current();
    if (auto earlier = std::dynamic_pointer_cast<LinuxCameraPicker>(pickers)) pickers = earlier->others();
    MediaPicker::setCurrent(std::make_shared<LinuxCameraPicker>(capture.camera, pickers));
    auto privacy = PrivacyServices::current();
    auto others = privacy.authority;
    if (auto earlier = std::dynamic_pointer_cast<CapturePrivacyAuthority>(others)) others = earlier->others();
    privacy.authority = std::make_shared<CapturePrivacyAuthority>(others, capture.microphone, capture.camera);
    PrivacyServices::setCurrent(privacy);
    return capture;
}

}  // namespace quorvane::platform::linux_capture
