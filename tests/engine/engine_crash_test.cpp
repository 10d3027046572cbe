// Crash safety: an upload process killed with SIGKILL mid-upload is followed by a new process on the
// same record directory and user defaults, which finishes the same object without sending again
// the parts the service already stored.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "engine_cloud_support.h"

extern char** environ;

using namespace quorvane;
using namespace quorvane::test;

namespace {

constexpr std::size_t kFileSize = 12 << 20;  // twelve 1 MiB parts

class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& args, const std::string& defaultsFile) {
        std::vector<char*> argv;
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        std::vector<std::string> env = {"QUORVANE_DEFAULTS_FILE=" + defaultsFile};
        for (char** e = environ; *e; ++e)
            if (std::string(*e).rfind("QUORVANE_DEFAULTS_FILE=", 0) != 0) env.push_back(*e);
        std::vector<char*> envp;
        for (auto& e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
    }
    ~ChildProcess() {
        if (pid_ > 0 && !reaped_) {
            ::kill(pid_, SIGKILL);
            wait();
        }
    }
    bool started() const { return pid_ > 0; }
    void kill() { ::kill(pid_, SIGKILL); }
    // The wait status.
    int wait() {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        reaped_ = true;
        return status;
    }
    // The exit code, or -1 when it did not exit within the time.
    int waitExit(std::chrono::seconds timeout) {
        auto until = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < until) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                reaped_ = true;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(50ms);
        }
        return -1;
    }

private:
    pid_t pid_ = -1;
    bool reaped_ = false;
};

emulator::EmulatorOptions persistentCloud(const std::string& storage) {
    emulator::EmulatorOptions options;
    options.storageDir = storage;
    return options;
}

}  // namespace

class CrashSafety : public ::testing::Test {
protected:
    TempDir dir;
    ScriptedReachability reachability;
};

TEST_F(CrashSafety, KilledUploadIsFinishedByTheNextProcessWithoutResendingStoredParts) {
    emulator::CloudEmulator cloud(persistentCloud(dir.file("storage")));
    ASSERT_TRUE(cloud.start());
    const auto bytes = randomBytes(kFileSize, 77);
    const std::string file = dir.file("crash.bin");
    writeFile(file, bytes);
    auto run = [&] {
        auto sts = cloud.issueSts();
        return std::make_unique<ChildProcess>(
            std::vector<std::string>{QUORVANE_UPLOAD_CHILD, cloud.endpoint(), cloud.options().bucket, "crash/obj.bin",
                                     file, dir.file("records"), sts.AccessKeyId, sts.AccessKeySecret,
                                     sts.SecurityToken, sts.Expiration},
            dir.file("defaults.json"));
    };

    // Slow parts, so the kill lands in the middle of the upload.
    for (int i = 0; i < 40; ++i) cloud.addFault(Fault::delay("UploadPart", 400));
    auto first = run();
    ASSERT_TRUE(first->started());
    auto until = std::chrono::steady_clock::now() + 120s;
    while (partsStored(cloud).size() < 4 && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(20ms);
    first->kill();
    first->wait();
    cloud.clearFaults();
    const auto beforeCrash = partsStored(cloud);
    ASSERT_GE(beforeCrash.size(), 4u);
    ASSERT_LT(beforeCrash.size(), 12u) << "the upload ended before the kill";

    auto second = run();
    ASSERT_TRUE(second->started());
    ASSERT_EQ(second->waitExit(180s), 0);

    EXPECT_EQ(cloud.objectBytes(cloud.options().bucket, "crash/obj.bin"), bytes);
    // What the first process had stored (also a part whose answer the kill swallowed) was taken
    // over. Only a part in flight at the kill (three at most) may have been stored twice: by the
    // service after the kill, once its bytes had all arrived, and again by the new process.
    const auto after = partsStored(cloud);
    EXPECT_EQ(after.size(), 12u);
    for (const auto& [part, times] : beforeCrash) EXPECT_EQ(after.at(part), 1) << "part " << part << " sent again";
    std::size_t storedTwice = 0;
    for (const auto& [part, times] : after) storedTwice += times - 1;
    EXPECT_LE(storedTwice, 3u);
    std::uint64_t storedBytes = 0;
    for (const auto& r : cloud.requests("UploadPart"))
        if (r.status == 200) storedBytes += r.bodySize;
    EXPECT_EQ(storedBytes, kFileSize + (storedTwice << 20));
    // What the kill cut off in flight (three parts at most) is all that was received twice.
    EXPECT_LE(cloud.uploadPartBytesReceived(), kFileSize + (3u << 20));
    // The new process continued the recorded upload: none was begun and left open.
    EXPECT_EQ(cloud.requests("InitiateMultipartUpload").size(), 1u);
    for (const auto& upload : cloud.uploads()) EXPECT_NE(upload.state, emulator::UploadState::Open) << upload.uploadId;
}
