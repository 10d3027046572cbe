#include "foundation/temp_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "foundation/crypto.h"

namespace quorvane::foundation {
namespace {

std::mutex& dirMutex() {
    static std::mutex m;
    return m;
}
std::string& overriddenDir() {
    static std::string dir;
    return dir;
}

std::string withSlash(std::string dir) {
    if (dir.empty() || dir.back() != '/') dir.push_back('/');
    return dir;
}

// Unless the host chose one (host_paths.h): the library reads no environment variable.
std::string defaultDir() { return "/tmp/quorvane-" + std::to_string(::getuid()) + "/"; }

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

void syncDirectoryOf(const std::string& path) {
    std::string dir = std::filesystem::path(path).parent_path().string();
    int fd = ::open(dir.empty() ? "." : dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

std::string temporaryDirectory() {
    std::string dir;
    {
        std::lock_guard lock(dirMutex());
        dir = overriddenDir().empty() ? defaultDir() : overriddenDir();
    }
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);  // like the platform's, it always exists
    return dir;
}

void setTemporaryDirectory(const std::string& dir) {
    std::lock_guard lock(dirMutex());
    overriddenDir() = dir.empty() ? std::string() : withSlash(dir);
}

std::string globallyUniqueString() {
    static std::atomic<std::uint64_t> counter{0};
    char tail[40];
    std::snprintf(tail, sizeof tail, "-%ld-%016llX", static_cast<long>(::getpid()),
                  static_cast<unsigned long long>(++counter));
    return randomUuid() + tail;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes, Durability durability) {
    const bool sync = durability == Durability::PowerLoss;
    const std::string temp = path + ".tmp-" + globallyUniqueString();
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = writeAll(fd, bytes) && (!sync || ::fsync(fd) == 0);
    ok = (::close(fd) == 0) && ok;
    if (ok) ok = ::rename(temp.c_str(), path.c_str()) == 0;
    if (!ok) {
        ::unlink(temp.c_str());
        return false;
    }
    if (sync) syncDirectoryOf(path);
    return true;
}

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream out;
    out << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return out.str();
}

ScopedTempDir::ScopedTempDir() : path_(temporaryDirectory() + "scoped-" + globallyUniqueString()) {
    std::error_code ec;
    std::filesystem::create_directories(path_, ec);
}

ScopedTempDir::~ScopedTempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

}  // namespace quorvane::foundation
