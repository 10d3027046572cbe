#pragma once
// The upload bridge and the façade's upload commands against the in-process cloud emulator: every
// service the uploads reach points at it, each test has its own temporary directory, key window
// and headless device, and a recorder collects what the host is answered.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "VODUpload/src/AVCVEventTransport.h"
#include "api/QuorvaneApiManager.h"
#include "support/cloud_services.h"
#include "emulator/cloud_emulator.h"
#include "foundation/dispatch.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_platform.h"
#include "platform/view.h"
#include "upload_bridge/ApiOSSUploadTool.h"
#include "upload_bridge/UploadingView.h"

namespace quorvane::test {

using namespace std::chrono_literals;

inline bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = 90s) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Keeps the main loop turning, so a late or second answer would show.
inline void settle(std::chrono::milliseconds time = 300ms) {
    foundation::MainLoop::instance().runUntil([] { return false; }, time);
}

inline std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    for (auto& b : bytes) b = static_cast<char>(engine() & 0xFF);
    return bytes;
}

// What the host was answered: every success and failure value, in order.
class Answers {
public:
    std::function<void(const Value&)> success() {
        return [this](const Value& v) { add(successes_, v); };
    }
    std::function<void(const Value&)> fail() {
        return [this](const Value& v) { add(failures_, v); };
    }
    std::vector<Value> successes() const { return read(successes_); }
    std::vector<Value> failures() const { return read(failures_); }
    int count() const { return calls_; }
    bool waitForOne() const { return waitUntil([this] { return calls_ > 0; }); }

private:
    void add(std::vector<Value>& list, const Value& v) {
        std::lock_guard lock(mutex_);
        list.push_back(v);
        ++calls_;
    }
    std::vector<Value> read(const std::vector<Value>& list) const {
        std::lock_guard lock(mutex_);
        return list;
    }
    mutable std::mutex mutex_;
    std::vector<Value> successes_, failures_;
    std::atomic<int> calls_{0};
};

const Value kRequestFailed{{"code", "nativeErrorCode.000"}, {"message", "请求失败，请稍后再试"}};
const Value kUploadFailed{{"code", "nativeErrorCode.014"}, {"message", "上传失败"}};

class BridgeCloudTest : public ::testing::Test {
protected:
    void SetUp() override {
        device = platform::headless::installHeadlessDevice();
        platform::Window::setKeyWindow(std::make_shared<platform::Window>());
        foundation::setTemporaryDirectory(tmp.path() + "/");
        ASSERT_TRUE(cloud.start());
        QuorvaneApiManager::setUploadServices(services());
    }
    void TearDown() override {
        AVCVEventTransport::shared()->waitUntilIdle(20s);
        QuorvaneApiManager::setUploadServices({});
    }

    // The enterprise API, the video service and the log service, all at the emulator.
    ApiOSSUploadTool::Config services() const {
        ApiOSSUploadTool::Config config;
        config.enterpriseApiBaseUrl = cloud.endpoint();
        config.vod = test::servicesAt(cloud);
        return config;
    }

    // Writes tmp/media/<name>; returns the path as a host would hand it back from an earlier run.
    std::string mediaFile(const std::string& name, const std::string& bytes) {
        std::filesystem::create_directories(tmp.path() + "/media");
        std::ofstream(tmp.path() + "/media/" + name, std::ios::binary) << bytes;
        return "/var/mobile/old-sandbox/tmp/media/" + name;
    }
    std::string localPath(const std::string& name) const { return tmp.path() + "/media/" + name; }

    // Hands `request` to the façade's upload; waits for the first answer unless `wait` is false.
    std::unique_ptr<Answers> ossUpload(const Value& request, bool wait = true) {
        auto answers = std::make_unique<Answers>();
        QuorvaneApiManager::OSSUploadFile(request, nullptr, answers->success(), answers->fail());
        if (wait) {
            EXPECT_TRUE(answers->waitForOne());
        }
        return answers;
    }

    std::string token() const { return cloud.options().enterpriseAccessToken; }
    std::string bucket() const { return cloud.options().bucket; }

    // The overlays currently in the key window.
    static std::vector<std::shared_ptr<UploadingView>> overlays() {
        std::vector<std::shared_ptr<UploadingView>> found;
        for (const auto& v : platform::Window::keyWindow()->subviews())
            if (auto overlay = std::dynamic_pointer_cast<UploadingView>(v)) found.push_back(overlay);
        return found;
    }

    foundation::ScopedTempDir tmp;
    platform::headless::HeadlessDevice device;
    emulator::CloudEmulator cloud;
};

}  // namespace quorvane::test
