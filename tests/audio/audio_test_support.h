#pragma once
// A fresh headless microphone (also the clock), audio session, device, privacy set and temporary
// directory for each voice-note test, and a reader that decodes a recorded file with FFmpeg.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_audio_session.h"
#include "platform/headless/headless_microphone.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"

namespace quorvane::testing {

// What a file decodes to: the container and codec FFmpeg found, and the decoded audio.
struct DecodedAudio {
    bool opened = false;
    std::string container, codec;
    int sampleRate = 0, channels = 0;
    long long frames = 0;  // decoded samples per channel
    double rms = 0;        // of the first channel, full scale 1.0
    double seconds() const { return sampleRate ? static_cast<double>(frames) / sampleRate : 0; }
};
DecodedAudio decodeAudioFile(const std::string& path);

inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

class AudioTest : public ::testing::Test {
protected:
    void SetUp() override {
        foundation::setTemporaryDirectory(tempDir.path() + "/");
        device = platform::headless::installHeadlessDevice();
        privacy = platform::headless::installHeadlessPrivacy();
        microphone = std::make_shared<platform::headless::HeadlessMicrophone>(platform::PcmFormat{44100, 1});
        session = std::make_shared<platform::headless::HeadlessAudioSession>();
        previousMicrophone = platform::Microphone::setCurrent(microphone);
        previousClock = platform::RecordingClock::setCurrent(microphone);
        previousSession = platform::SharedAudioSession::setCurrent(session);
    }
    void TearDown() override {
        platform::Microphone::setCurrent(previousMicrophone);
        platform::RecordingClock::setCurrent(previousClock);
        platform::SharedAudioSession::setCurrent(previousSession);
        foundation::setTemporaryDirectory("");
    }
    std::string mediaDirectory() const { return foundation::temporaryDirectory() + "media"; }

    foundation::ScopedTempDir tempDir;
    platform::headless::HeadlessDevice device;
    platform::headless::HeadlessPrivacy privacy;
    std::shared_ptr<platform::headless::HeadlessMicrophone> microphone;
    std::shared_ptr<platform::headless::HeadlessAudioSession> session;
    std::shared_ptr<platform::Microphone> previousMicrophone;
    std::shared_ptr<platform::RecordingClock> previousClock;
    std::shared_ptr<platform::SharedAudioSession> previousSession;
};

}  // namespace quorvane::testing
