#pragma once
// Helpers shared by the engine and short-video tests.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>

#include "VODUpload/src/VODUploadEngine.h"
#include "foundation/dispatch.h"
#include "foundation/user_defaults.h"

namespace quorvane {

// The engine behind a client, for the steps and records a test looks at directly.
inline VODUploadEngine& engineOf(const VODUploadClient& client) { return VODUploadClientInternals::engine(client); }

// Reaches the client's private state so the tests can put it where a running queue would.
struct VODUploadClientTestAccess {
    static void setState(VODUploadClient& c, VODClientState s) {
        auto& e = engineOf(c);
        e.serially([&] { e.transitionTo(s); });
    }
    static void setCur(VODUploadClient& c, std::shared_ptr<UploadFileInfo> f) {
        auto& e = engineOf(c);
        e.serially([&] { e.upload_ = std::make_shared<VODFileUpload>(std::move(f)); });
    }
    static void setOpenApiConfig(VODUploadClient& c, std::shared_ptr<OSSConfig> conf) {
        auto& e = engineOf(c);
        e.serially([&] { e.openApiConfig_ = std::move(conf); });
    }
};

namespace test {

// A fresh directory, removed with its contents at the end of the scope.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "quorvane-engine-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Deterministic bytes, different per seed.
inline std::string randomBytes(std::size_t size, unsigned seed) {
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    for (auto& b : bytes) b = static_cast<char>(engine() & 0xFF);
    return bytes;
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Waits on the main loop (the engine delivers some outcomes there) until `done` holds.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::seconds(90)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Keeps the tests' persisted state (the resume cache) out of the user's own store.
class UserDefaultsEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        dir_ = std::make_unique<TempDir>();
        foundation::UserDefaults::setStandardPath(dir_->file("user-defaults.json"));
    }
    void TearDown() override { dir_.reset(); }

private:
    std::unique_ptr<TempDir> dir_;
};

}  // namespace test
}  // namespace quorvane
