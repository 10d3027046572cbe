#pragma once
// A fresh headless device, privacy set and key window for each permission or alert test.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <vector>

#include "foundation/dispatch.h"
#include "platform/headless/headless_containers.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"

namespace quorvane::testing {

inline bool waitFor(const std::function<bool()>& done) {
    return foundation::MainLoop::instance().runUntil(done, std::chrono::seconds(30));
}

// Turns the main loop for a while, so a callback that should not come would show.
inline void settle() {
    foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(150));
}

// One answer of a permission callback, with where it arrived.
struct Answer {
    bool granted = false, firstTime = false, onMain = true;
    bool operator==(const Answer&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Answer& a) {
        return out << "{granted " << a.granted << ", firstTime " << a.firstTime << ", onMain " << a.onMain << "}";
    }
};
using Answers = std::vector<Answer>;

class PrivacyTest : public ::testing::Test {
protected:
    void SetUp() override {
        device = platform::headless::installHeadlessDevice();
        privacy = platform::headless::installHeadlessPrivacy();
        window = std::make_shared<platform::ControllerWindow>();
        platform::ApplicationWindows::setKeyWindow(window);
        platform::ApplicationWindows::setDelegateWindow(window);
        root = platform::headless::HeadlessScreen::create();
        window->setRootViewController(root);
        // The test's thread is the one that runs the main loop: answers given at once count as on it.
        foundation::MainLoop::instance().runUntil([] { return true; }, std::chrono::milliseconds(0));
    }
    void TearDown() override { settle(); }

    // A callback that records each answer.
    std::function<void(bool, bool)> recorder() {
        return [this](bool granted, bool firstTime) { answers.push_back({granted, firstTime, foundation::isMainThread()}); };
    }
    void useSystemVersion(const std::string& version) {
        auto facts = device.device->facts();
        facts.systemVersion = version;
        device.device->setFacts(facts);
    }
    std::shared_ptr<platform::AlertController> presentedAlert() const {
        return std::dynamic_pointer_cast<platform::AlertController>(root->presentedViewController());
    }

    platform::headless::HeadlessDevice device;
    platform::headless::HeadlessPrivacy privacy;
    std::shared_ptr<platform::ControllerWindow> window;
    std::shared_ptr<platform::headless::HeadlessScreen> root;
    Answers answers;
};

}  // namespace quorvane::testing
