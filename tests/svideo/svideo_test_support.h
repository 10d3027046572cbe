#pragma once
// The short-video client against the in-process cloud emulator: a running emulator per test with the
// video service and the log service pointed at it, a delegate that records every call, and a real
// cover JPEG and MP4 clip.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadSVideoClient.h"
#include "emulator/cloud_emulator.h"
#include "engine/engine_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/temp_files.h"
#include "support/cloud_services.h"
#include "support/media_files.h"

namespace quorvane {
namespace test {

using namespace std::chrono_literals;
using emulator::Fault;

// Waits without running the main loop, so that what the engine would do there stays undone meanwhile.
inline bool waitHoldingMainLoop(const std::function<bool()>& done, std::chrono::milliseconds timeout = 90s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

// Every delegate call in order: "vid", "result", "failed", "progress", "expired", "retry", "retryResume".
class RecordingDelegate : public VODUploadSVideoClientDelegate {
public:
    // Called with each event's name once it is recorded, from inside the callback. Set before the job.
    std::function<void(const std::string&)> onEvent;

    struct Success {
        std::optional<std::string> vid, imageUrl;
    };

    void uploadSuccessWithVid(const std::optional<std::string>& vid, const std::optional<std::string>& url) override {
        add("vid", [&] { successes_.push_back({vid, url}); });
    }
    void uploadSuccessWithResult(const VodSVideoUploadResult& result) override {
        add("result", [&] { results_.push_back(result); });
    }
    void uploadFailedWithCode(const std::string& code, const std::string& message) override {
        add("failed", [&] { failures_.push_back({code, message}); });
    }
    void uploadProgressWithUploadedSize(std::int64_t uploaded, std::int64_t total) override {
        add("progress", [&] { progress_.push_back({uploaded, total}); });
    }
    void uploadTokenExpired() override { add("expired"); }
    void uploadRetry() override { add("retry"); }
    void uploadRetryResume() override { add("retryResume"); }

    int count(const std::string& name) const {
        const auto all = events();
        return static_cast<int>(std::count(all.begin(), all.end(), name));
    }
    bool waitFor(const std::string& name, int times = 1) const {
        return waitUntil([&] { return count(name) >= times; });
    }
    std::vector<std::string> events() const { return copy(events_); }
    std::vector<Success> successes() const { return copy(successes_); }
    std::vector<VodSVideoUploadResult> results() const { return copy(results_); }
    std::vector<std::pair<std::string, std::string>> failures() const { return copy(failures_); }
    std::vector<std::pair<std::int64_t, std::int64_t>> progress() const { return copy(progress_); }

private:
    void add(const char* name, const std::function<void()>& keep = [] {}) {
        {
            std::lock_guard lock(mutex_);
            keep();
            events_.push_back(name);
        }
        if (onEvent) onEvent(name);
    }
    template <typename T>
    T copy(const T& field) const {
        std::lock_guard lock(mutex_);
        return field;
    }
    mutable std::mutex mutex_;
    std::vector<std::string> events_;
    std::vector<Success> successes_;
    std::vector<VodSVideoUploadResult> results_;
    std::vector<std::pair<std::string, std::string>> failures_;
    std::vector<std::pair<std::int64_t, std::int64_t>> progress_;
};

inline constexpr std::int32_t kPartSize = 100 * 1024;  // the smallest part the service takes

// A started emulator, a client pointed at it, a cover (several parts) and a clip (many parts).
class SVideoCloudTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(cloud.start());
        sts = cloud.issueSts();
        // Named after the test, so resume-cache identities never collide between tests.
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        std::replace(name.begin(), name.end(), '/', '-');
        cover = dir.file(name + "-cover.jpg");
        clip = dir.file(name + "-clip.mp4");
        ASSERT_TRUE(writeJpeg(cover, 640, 480));
        ASSERT_TRUE(writeClip(clip, ClipSpec{.frames = 12, .bitRate = 8000000}));
        ASSERT_GT(coverSize(), 2 * kPartSize);
        ASSERT_GT(clipSize(), 4 * kPartSize);
        // A resume cache of the test's own: the client must use the one it was given.
        auto services = servicesAt(cloud);
        services.resumeCache = cache =
            std::make_shared<VODObjectCache>(std::make_shared<foundation::UserDefaults>(dir.file("defaults.json")));
        client = VODUploadSVideoClient::create(services);
        client->setDelegate(delegate);
        client->setUploadPartSize(kPartSize);
        client->setRecordDirectoryPath(dir.file("records"));
        client->setRegion(cloud.options().region);
        VODUploadClientInternals::engine(*client->client()).setRetryWait(20ms);
        VODUploadEngineTestAccess::setMaxConcurrentParts(*client->client(), 1);
        info = std::make_shared<VodSVideoInfo>();
        info->title = "short clip";
        info->tags = "a,b";
        info->desc = "with a cover";
        info->cateId = 17;
        info->userData = R"({"app":"x"})";
    }

    void TearDown() override {
        if (client) client->cancel();
        waitUntil([&] { return !client || client->client()->state() != VODClientState::Started; }, 10s);
        client.reset();
        drainEvents();
    }

    bool start() {
        return client->uploadWithVideoPath(clip, cover, info, sts.AccessKeyId, sts.AccessKeySecret,
                                           sts.SecurityToken);
    }
    void refresh() {
        auto fresh = cloud.issueSts();
        client->refreshWithAccessKeyId(fresh.AccessKeyId, fresh.AccessKeySecret, fresh.SecurityToken,
                                       fresh.Expiration);
    }

    std::int64_t coverSize() const { return static_cast<std::int64_t>(std::filesystem::file_size(cover)); }
    std::int64_t clipSize() const { return static_cast<std::int64_t>(std::filesystem::file_size(clip)); }
    int coverParts() const { return static_cast<int>((coverSize() + kPartSize - 1) / kPartSize); }
    std::string bytesOf(const std::string& path) const { return foundation::readFile(path).value_or(""); }

    // UploadPart requests the service stored; with a prefix, only those of objects below it ("sv/"
    // holds the clips, "image/" the covers).
    std::size_t storedParts(const std::string& prefix = "") const {
        auto all = cloud.requests("UploadPart");
        return std::count_if(all.begin(), all.end(), [&](const auto& r) {
            return r.status == 200 && r.path.find("/" + prefix) != std::string::npos;
        });
    }
    // A cancelled or paused multipart run has reported (event 20008).
    bool waitForCancelledRun(int runs = 1) {
        return waitUntil([&] {
            int seen = 0;
            for (const auto& e : cloud.logEvents()) seen += e.params.value("e", "") == "20008";
            return seen >= runs;
        });
    }
    bool idle() const { return client->step() == 0 && client->status() == VODUploadSVideoClient::kStatusIdle; }
    // The video the service registered under `id`; fails the test when there is none.
    emulator::VodVideo videoWithId(const std::optional<std::string>& id) const {
        for (const auto& v : cloud.videos())
            if (v.videoId == id) return v;
        ADD_FAILURE() << "no video " << id.value_or("(none)");
        return {};
    }

    TempDir dir;
    emulator::CloudEmulator cloud;
    emulator::StsCredentials sts;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::shared_ptr<VODObjectCache> cache;
    std::shared_ptr<VODUploadSVideoClient> client;
    std::shared_ptr<VodSVideoInfo> info;
    std::string cover, clip;
};

}  // namespace test
}  // namespace quorvane
