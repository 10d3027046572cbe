#pragma once
// A fresh headless device for each capture test: a 375-point screen, granted camera and photos, a
// scripted camera and library, a presenting screen and its own temporary directory.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

extern "C" {
#include <libavutil/log.h>
}

#include "api/QuorvaneApiManager.h"
#include "api/media/VideoExport.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/temp_files.h"
#include "media_samples.h"
#include "platform/headless/headless_media_picker.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"
#include "support/media_files.h"

namespace quorvane::testing {

inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(60)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Turns the main loop for a while, so a callback that should not come would show.
inline void settle() {
    foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(200));
}

class CaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        av_log_set_level(AV_LOG_ERROR);
        foundation::setTemporaryDirectory(temp.path());
        device = platform::headless::installHeadlessDevice();
        auto facts = device.device->facts();
        facts.screen = {375, 667};
        device.device->setFacts(facts);
        privacy = platform::headless::installHeadlessPrivacy();
        privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusAuthorized);
        privacy.authority->setStatus(platform::PrivacyKind::Photos, platform::StatusAuthorized);
        picker = std::make_shared<platform::headless::HeadlessMediaPicker>();
        platform::MediaPicker::setCurrent(picker);
        screen = platform::headless::HeadlessPresenter::create();
    }
    void TearDown() override {
        settle();
        platform::MediaPicker::setCurrent(nullptr);
    }

    // A file in the test's own directory (outside "media") holding `bytes`.
    std::string sample(const std::string& name, const std::string& bytes) {
        std::string path = temp.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    std::string sampleMp4(const std::string& name, int width, int height, int fps, int frames, int rotation = 0) {
        std::string path = temp.path() + "/" + name;
        // A busy H.264 picture with a keyframe each second, as a phone camera records.
        EXPECT_TRUE(test::writeClip(path, test::ClipSpec{.width = width, .height = height, .fps = fps, .frames = frames,
                                                         .rotation = rotation, .keyframeEvery = fps, .preferH264 = true,
                                                         .picture = test::ClipPicture::Pattern}));
        return path;
    }
    SuccessCallback onSuccess() {
        return [this](const Value& value) { successes.push_back(value); };
    }
    FailCallback onFail() {
        return [this](const Value& value) { failures.push_back(value); };
    }
    bool answered() const { return !successes.empty() || !failures.empty(); }
    // Makes a capture call and waits for an answer: the first success, or null.
    Value answer(const std::function<void()>& call) {
        successes.clear();
        call();
        EXPECT_TRUE(waitFor([&] { return answered(); }));
        return successes.empty() ? Value() : successes.front();
    }
    std::string mediaDirectory() const { return foundation::temporaryDirectory() + "media"; }

    foundation::ScopedTempDir temp;
    platform::headless::HeadlessDevice device;
    platform::headless::HeadlessPrivacy privacy;
    std::shared_ptr<platform::headless::HeadlessMediaPicker> picker;
    std::shared_ptr<platform::headless::HeadlessPresenter> screen;
    std::vector<Value> successes, failures;
};

}  // namespace quorvane::testing
