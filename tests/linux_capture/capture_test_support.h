#pragma once
// A headless phone whose microphone, recording clock, camera and their permissions are the Linux
// capture devices, fed by FFmpeg inputs the test names; and readers for what they produced.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "foundation/dispatch.h"
#include "support/call_outcomes.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_containers.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"
#include "platform/linux/capture/linux_capture.h"
#include "platform/media_picker.h"
#include "platform/view.h"
#include "platform/window_hierarchy.h"

namespace quorvane::testing {

inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Turns the main loop for `span`, so what should not come would show (and time passes for capture).
inline void runFor(std::chrono::milliseconds span) {
    foundation::MainLoop::instance().runUntil([] { return false; }, span);
}

// A sound file's first channel as 16-bit samples.
struct DecodedSound {
    bool opened = false;
    int sampleRate = 0;
    std::vector<std::int16_t> samples;
    double seconds() const { return sampleRate ? static_cast<double>(samples.size()) / sampleRate : 0; }
    // The tone's frequency from its upward zero crossings.
    double frequency() const;
};
DecodedSound decodeSound(const std::string& path);

class LinuxCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        foundation::setTemporaryDirectory(tempDir.path() + "/");
        device = platform::headless::installHeadlessDevice();
        platform::headless::installHeadlessPrivacy();
        window = std::make_shared<platform::ControllerWindow>();
        platform::ApplicationWindows::setKeyWindow(window);
        platform::ApplicationWindows::setDelegateWindow(window);
        platform::Window::setKeyWindow(std::make_shared<platform::Window>());
        host = platform::headless::HeadlessScreen::create();
        window->setRootViewController(host);
    }
    void TearDown() override {
        runFor(std::chrono::milliseconds(50));
        platform::Microphone::setCurrent(nullptr);
        platform::RecordingClock::setCurrent(nullptr);
        platform::CaptureCamera::setCurrent(nullptr);
        platform::MediaPicker::setCurrent(nullptr);
        foundation::setTemporaryDirectory("");
    }
    void install(const std::string& microphone, const std::string& camera = "lavfi:testsrc=size=64x48") {
        capture = platform::linux_capture::installLinuxCapture({microphone, camera});
    }
    std::string mediaDirectory() const { return foundation::temporaryDirectory() + "media"; }

    foundation::ScopedTempDir tempDir;
    platform::headless::HeadlessDevice device;
    std::shared_ptr<platform::ControllerWindow> window;
    std::shared_ptr<platform::headless::HeadlessScreen> host;
    platform::linux_capture::LinuxCapture capture;
    Outcomes outcomes;
};

}  // namespace quorvane::testing
