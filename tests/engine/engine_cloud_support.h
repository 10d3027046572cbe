#pragma once
// The engine against the in-process cloud emulator: a running emulator per test with the video
// service and the log service pointed at it, a listener that records what the engine reports, and
// test files.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/VODObjectCache.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "VODUpload/src/VodInfo.h"
#include "device/reachability_test_support.h"
#include "emulator/cloud_emulator.h"
#include "engine_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/temp_files.h"
#include "support/cloud_services.h"
#include "support/media_files.h"

namespace quorvane {
namespace test {

using namespace std::chrono_literals;
using emulator::Fault;

// Every listener call, in order, as "started", "progress", "success", "finish", "failure",
// "expire", "retry", "retryResume". Callbacks arrive on worker threads.
class RecordingListener {
public:
    struct Call {
        std::string name, file, code, message;
        UploadFileState state;  // the file's, as the listener saw it
        VodUploadResult result;
    };

    std::shared_ptr<VODUploadListener> make() {
        auto l = std::make_shared<VODUploadListener>();
        l->started = [this](const auto& f) { add("started", f); };
        l->success = [this](const auto& f) { add("success", f); };
        l->finish = [this](const auto& f, const VodUploadResult& r) { add("finish", f, {}, {}, r); };
        l->failure = [this](const auto& f, const std::string& code, const std::string& message) {
            add("failure", f, code, message);
        };
        l->progress = [this](const auto& f, long, long) { add("progress", f); };
        l->expire = [this] { add("expire", nullptr); };
        l->retry = [this] { add("retry", nullptr); };
        l->retryResume = [this] { add("retryResume", nullptr); };
        return l;
    }

    std::vector<std::string> events() const { return each([](const Call& c) { return c.name; }); }
    std::vector<std::string> files() const { return each([](const Call& c) { return c.file; }); }
    // The events with consecutive "progress" entries folded into one.
    std::vector<std::string> folded() const {
        std::vector<std::string> out;
        for (const auto& e : events())
            if (out.empty() || e != "progress" || out.back() != "progress") out.push_back(e);
        return out;
    }
    int count(const std::string& name) const {
        const auto names = events();
        return static_cast<int>(std::count(names.begin(), names.end(), name));
    }
    bool waitFor(const std::string& name, int times = 1, std::chrono::milliseconds timeout = 90s) const {
        return waitUntil([&] { return count(name) >= times; }, timeout);
    }
    std::vector<VodUploadResult> results() const { return each([](const Call& c) { return c.result; }, "finish"); }
    std::vector<std::pair<std::string, std::string>> failures() const {
        return each([](const Call& c) { return std::make_pair(c.code, c.message); }, "failure");
    }
    std::vector<UploadFileState> failureStates() const { return each([](const Call& c) { return c.state; }, "failure"); }

private:
    void add(const char* name, const std::shared_ptr<UploadFileInfo>& f, std::string code = {},
             std::string message = {}, VodUploadResult result = {}) {
        Call call{name, f ? f->filePath : "", std::move(code), std::move(message),
                  f ? f->state.load() : UploadFileState::Ready, std::move(result)};
        std::lock_guard lock(mutex_);
        calls_.push_back(std::move(call));
    }
    // `pick` of every call, or of the calls of one name.
    template <typename Pick>
    std::vector<std::invoke_result_t<Pick, const Call&>> each(Pick pick, const std::string& name = "") const {
        std::lock_guard lock(mutex_);
        std::vector<std::invoke_result_t<Pick, const Call&>> out;
        for (const auto& c : calls_)
            if (name.empty() || c.name == name) out.push_back(pick(c));
        return out;
    }
    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};

// "a=1&b=2" as a dictionary of texts.
inline std::map<std::string, std::string> argsOf(const Value& event) {
    std::map<std::string, std::string> out;
    const std::string args = event.value("args", "");
    std::size_t start = 0;
    while (start <= args.size()) {
        auto end = args.find('&', start);
        if (end == std::string::npos) end = args.size();
        auto pair = args.substr(start, end - start);
        auto eq = pair.find('=');
        if (eq != std::string::npos) out[pair.substr(0, eq)] = pair.substr(eq + 1);
        start = end + 1;
    }
    return out;
}

// UploadPart requests `cloud` stored (of one upload, when given), by part number.
inline std::map<int, int> partsStored(const emulator::CloudEmulator& cloud, const std::string& uploadId = "") {
    std::map<int, int> counts;
    for (const auto& r : cloud.requests("UploadPart")) {
        if (r.status != 200) continue;
        if (!uploadId.empty() && r.query.find("uploadId=" + uploadId) == std::string::npos) continue;
        auto at = r.query.find("partNumber=");
        if (at != std::string::npos) ++counts[std::stoi(r.query.substr(at + 11))];
    }
    return counts;
}

// A started emulator with the video service and the log service pointed at it.
class EngineCloudTest : public ::testing::Test {
protected:
    explicit EngineCloudTest(emulator::EmulatorOptions options = {}) : cloud(std::move(options)) {}

    void SetUp() override {
        ASSERT_TRUE(cloud.start());
        sts = cloud.issueSts();
        useClient(VODUploadClient::create(services()));
    }

    // The video service and the log service of this test's emulator.
    VODServiceConfig services() const { return servicesAt(cloud); }

    // Makes `c` the test's client, reporting and recording where the fixture looks.
    void useClient(std::shared_ptr<VODUploadClient> c) {
        client = std::move(c);
        engineOf(*client).eventManager()->setTransport(events);
        client->setRecordDirectoryPath(dir.file("records"));
        engineOf(*client).setRetryWait(20ms);
    }

    void TearDown() override {
        if (client) client->stop();
        client.reset();
        drainEvents();
    }

    bool initSts(const std::shared_ptr<VODUploadClient>& c) {
        return c->init(sts.AccessKeyId, sts.AccessKeySecret, sts.SecurityToken, sts.Expiration, listener.make());
    }

    // A file named after the running test, so resume-cache identities never collide between tests.
    std::string makeFile(const std::string& suffix, const std::string& bytes) {
        std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        std::string path = dir.file(name + "-" + suffix);
        writeFile(path, bytes);
        return path;
    }

    std::string bucket() const { return cloud.options().bucket; }

    // Queues `path` for `key` on the emulator's storage (or for the video service with `info`), then starts.
    bool addAndStart(const std::string& path, const std::string& key) {
        return client->addFile(path, cloud.endpoint(), bucket(), key) && client->start();
    }
    bool addAndStart(const std::string& path, std::shared_ptr<VodInfo> info) {
        return client->addFile(path, std::move(info)) && client->start();
    }

    std::map<int, int> storedParts(const std::string& uploadId = "") const { return partsStored(cloud, uploadId); }

    // Multipart uploads the service still holds open (neither completed nor aborted).
    std::size_t openUploads() const {
        std::size_t open = 0;
        for (const auto& u : cloud.uploads()) open += u.state == emulator::UploadState::Open;
        return open;
    }

    // The log-service events of one code, once the telemetry queue has drained.
    std::vector<Value> eventsWithCode(const std::string& code) {
        events->waitUntilIdle(20s);
        EXPECT_EQ(events->dropped(), 0u) << "events were dropped: counts below are incomplete";
        AVCVEventTransport::shared()->waitUntilIdle(20s);
        std::vector<Value> out;
        for (const auto& e : cloud.logEvents())
            if (e.params.value("e", "") == code) out.push_back(e.params);
        return out;
    }

    // The cancelled run has reported (event 20008), so a later start is not mistaken for it.
    bool waitForCancelledRun(std::size_t runs = 1) {
        return waitUntil([&] { return eventsWithCode("20008").size() >= runs; });
    }

    TempDir dir;
    // The fixture's client reports through a transport with room for every event: the product drops
    // events when its few slots are busy, which a loaded machine would turn into missing events here.
    std::shared_ptr<AVCVEventTransport> events = [] {
        AVCVEventTransportOptions options;
        options.maxInFlight = 256;
        return std::make_shared<AVCVEventTransport>(options);
    }();
    ScriptedReachability reachability;
    emulator::CloudEmulator cloud;
    emulator::StsCredentials sts;
    RecordingListener listener;
    std::shared_ptr<VODUploadClient> client;
};

}  // namespace test
}  // namespace quorvane
