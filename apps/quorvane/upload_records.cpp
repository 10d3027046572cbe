#include "upload_records.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "foundation/host_paths.h"
#include "foundation/temp_files.h"
#include "oss/crc64.h"

namespace quorvane::app {
namespace fs = std::filesystem;

UploadCachePaths uploadCachePaths(bool embedded) {
    fs::path base = foundation::xdgCacheHome(std::getenv);
    if (base.empty()) base = fs::temp_directory_path();
    fs::path root = base / "quorvane";
    fs::path state = root / (embedded ? "local" : "remote");
    return {root.string(), (root / "cloud").string(), (state / "records").string(),
            (state / "user-defaults.json").string()};
}

bool prepareUploadCache(const UploadCachePaths& paths, std::string& error) {
    for (const fs::path& dir : {fs::path(paths.recordDir), fs::path(paths.defaultsFile).parent_path()}) {
        std::error_code ec;
        fs::create_directories(dir, ec);
        if (ec) {
            error = "cannot create " + dir.string() + ": " + ec.message();
            return false;
        }
    }
    return true;
}

std::optional<std::uint64_t> fileCrc64(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::vector<char> buffer(1 << 20);
    std::uint64_t crc = 0;
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        if (in.gcount() > 0) crc = oss::Crc64::update(crc, buffer.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (in.bad()) return std::nullopt;
    return crc;
}

}  // namespace quorvane::app
