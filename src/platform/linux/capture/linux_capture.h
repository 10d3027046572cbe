#pragma once
// A Linux host's capture devices: the microphone and its real-time recording clock, the camera for
// the scanner and the camera screen, and their authorisations, installed over the current platform
// services (the album, the library and every other permission kind stay as they were: those of the
// family installed before, or none). Installing again replaces the devices of the first install.
#include <memory>
#include <string>

#include "platform/linux/capture/linux_capture_camera.h"
#include "platform/linux/capture/linux_microphone.h"
#include "platform/linux/capture/linux_recording_clock.h"

namespace quorvane::platform::linux_capture {

struct CaptureInputs {
    std::string microphone = "alsa:default";
    std::string camera = "v4l2:/dev/video0";
};

struct LinuxCapture {
    std::shared_ptr<LinuxMicrophone> microphone;
    std::shared_ptr<LinuxRecordingClock> clock;
    std::shared_ptr<LinuxCaptureCamera> camera;
};

LinuxCapture installLinuxCapture(const CaptureInputs& inputs);

}  // namespace quorvane::platform::linux_capture
