#pragma once
// The fixture of the `quorvane upload` tests: a scratch directory with its own cache, files of seeded
// random bytes, the built program run as a child, and its JSON events by name.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cli/cli_process.h"
#include "emulator/cloud_emulator.h"
#include "foundation/value.h"

namespace quorvane {
namespace fs = std::filesystem;
using testing::CliProcess;
using namespace std::chrono_literals;

constexpr auto kGenerous = 180s;  // a loaded two-core machine: events may take long, never forever

class CliUpload : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() / ("quorvane-cli-" + std::to_string(::getpid()) + "-" +
                                             ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root_);
        fs::create_directories(root_ / "cache");
    }
    void TearDown() override { fs::remove_all(root_); }

    std::string makeFile(const std::string& name, std::size_t size, unsigned seed) {
        std::string bytes(size, '\0');
        std::mt19937 random(seed);
        for (auto& byte : bytes) byte = static_cast<char>(random() & 0xff);
        auto path = root_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        contents_[path.string()] = bytes;
        return path.string();
    }

    std::unique_ptr<CliProcess> run(std::vector<std::string> args,
                                    std::vector<std::pair<std::string, std::string>> env = {}) {
        args.insert(args.begin(), QUORVANE_CLI_PATH);
        // Nothing of the user running the tests: no credentials, profiles or cache of theirs.
        std::vector<std::pair<std::string, std::string>> defaults{
            {"XDG_CACHE_HOME", (root_ / "cache").string()}, {"XDG_CONFIG_HOME", (root_ / "config").string()},
            {"QUORVANE_LOG_SERVICE_ENDPOINT", ""}, {"OSS_ACCESS_KEY_ID", ""}, {"OSS_ACCESS_KEY_SECRET", ""},
            {"OSS_SESSION_TOKEN", ""}, {"ALIBABA_CLOUD_ACCESS_KEY_ID", ""}, {"ALIBABA_CLOUD_ACCESS_KEY_SECRET", ""},
            {"ALIBABA_CLOUD_SECURITY_TOKEN", ""}, {"QUORVANE_PROFILE", ""}};
        for (const auto& entry : defaults)
            if (std::none_of(env.begin(), env.end(), [&](const auto& e) { return e.first == entry.first; }))
                env.push_back(entry);
        return std::make_unique<CliProcess>(std::move(args), std::move(env));
    }

    // Runs the program to its end, expecting exit status `code`.
    std::unique_ptr<CliProcess> ran(int code, std::vector<std::string> args,
                                    std::vector<std::pair<std::string, std::string>> env = {}) {
        auto process = run(std::move(args), std::move(env));
        EXPECT_EQ(process->wait(kGenerous), code) << process->errors();
        return process;
    }

    // The one event of the run with the given name; null unless there is exactly one.
    static Value only(const CliProcess& process, const std::string& name) {
        auto found = events(process, name);
        EXPECT_EQ(found.size(), 1u) << name << ": " << process.errors();
        return found.size() == 1 ? found[0] : Value();
    }

    // The JSON events of the run with the given "event" name.
    static std::vector<Value> events(const CliProcess& process, const std::string& name) {
        std::vector<Value> found;
        for (const auto& line : process.lines()) {
            auto value = foundation::parseJson(line);
            if (value && value->is_object() && value->value("event", "") == name) found.push_back(*value);
        }
        return found;
    }

    fs::path root_;
    std::map<std::string, std::string> contents_;
};

// An emulator started with options of the test's own; its root keys go in the environment.
class CliUploadToEmulator : public CliUpload {
protected:
    void startCloud(const emulator::EmulatorOptions& options) {
        cloud_ = std::make_unique<emulator::CloudEmulator>(options);
        ASSERT_TRUE(cloud_->start());
    }
    // `upload --json` to the emulator's endpoint and bucket, then `extra`.
    std::vector<std::string> uploadArgs(const std::vector<std::string>& extra) const {
        std::vector<std::string> all{"upload", "--json", "--endpoint", cloud_->endpoint(), "--bucket",
                                     cloud_->options().bucket};
        all.insert(all.end(), extra.begin(), extra.end());
        return all;
    }
    std::vector<std::pair<std::string, std::string>> keys() const {
        return {{"OSS_ACCESS_KEY_ID", cloud_->options().accessKeyId},
                {"OSS_ACCESS_KEY_SECRET", cloud_->options().accessKeySecret}};
    }
    std::unique_ptr<emulator::CloudEmulator> cloud_;
};

class CliUploadToService : public CliUpload {
protected:
    void SetUp() override {
        CliUpload::SetUp();
        ASSERT_TRUE(cloud_.start());
        sts_ = cloud_.issueSts();
    }
    std::vector<std::string> serviceArgs(const std::string& file, const std::string& keyId) {
        return {"upload", "--json", "--oss", "--endpoint", cloud_.endpoint(), "--region", cloud_.options().region,
                "--bucket", cloud_.options().bucket,
                "--key-id", keyId, "--secret", sts_.AccessKeySecret, "--sts-token", sts_.SecurityToken,
                "--expire", sts_.Expiration, "--part-size", std::to_string(kPart), "--retries", "2", file};
    }
    // Starts an upload of `file` whose later parts stall, interrupts it once more than three parts' bytes
    // went (so at least one part is stored: three are in flight at most), and waits until the stalled
    // requests have ended on their own, so the byte count holds still.
    void interruptMidway(const std::string& file, int quickParts) {
        for (int i = 0; i < quickParts; ++i) cloud_.addFault(emulator::Fault::delay("UploadPart", 0));
        for (int i = 0; i < 12; ++i) cloud_.addFault(emulator::Fault::delay("UploadPart", 4000));
        auto first = run(serviceArgs(file, sts_.AccessKeyId));
        auto midway = first->readUntil(
            [](const std::string& line) {
                auto event = foundation::parseJson(line);
                return event && event->value("event", "") == "progress" && event->value("uploaded", 0ULL) > 3 * kPart;
            },
            kGenerous);
        ASSERT_TRUE(midway) << first->errors();
        first->signal(SIGINT);
        ASSERT_EQ(first->wait(kGenerous), 130) << first->errors();
        ASSERT_EQ(events(*first, "interrupted").size(), 1u);
        EXPECT_TRUE(events(*first, "success").empty());
        auto settled = [this] { return cloud_.requests("UploadPart").size() >= cloud_.firedCount("UploadPart"); };
        for (auto deadline = std::chrono::steady_clock::now() + kGenerous;
             !settled() && std::chrono::steady_clock::now() < deadline;)
            std::this_thread::sleep_for(50ms);
        ASSERT_TRUE(settled());
        cloud_.clearFaults();
    }
    static constexpr std::size_t kPart = 256 * 1024;
    emulator::CloudEmulator cloud_;
    emulator::StsCredentials sts_;
};

}  // namespace quorvane
