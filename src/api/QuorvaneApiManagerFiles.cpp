// Temporary files and the timestamp.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "api/QuorvaneApiManager.h"
#include "foundation/dates.h"
#include "foundation/temp_files.h"

namespace quorvane {
namespace {

// Appends a path component the way file paths are joined everywhere here: one '/', no trailing '/'.
std::string appendingPathComponent(std::string base, const std::string& component) {
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    if (component.empty()) return base;
    return base + "/" + component;
}

std::string temporaryDirectory(const std::string& middleDir) {
    std::string root = foundation::temporaryDirectory();
    return middleDir.empty() ? root : appendingPathComponent(root, middleDir);
}

}  // namespace

std::string QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir(const std::string& middleDir,
                                                                    const std::string& fileName,
                                                                    const std::string& fileSuffix) {
    std::string directory = temporaryDirectory(middleDir);
    std::error_code ignored;
    if (!std::filesystem::exists(directory, ignored)) std::filesystem::create_directories(directory, ignored);
    std::string name = fileName.empty() ? foundation::globallyUniqueString() : fileName;
    return appendingPathComponent(directory, name + "." + fileSuffix);
}

std::string QuorvaneApiManager::saveFile(const std::string& data, const std::string& toSandboxTempWithMiddleDir,
                                         const std::string& fileSuffix) {
    std::string path = getPathFromSandboxTempWithMiddleDir(toSandboxTempWithMiddleDir, "", fileSuffix);
    // Synced: the caller may have no other copy of these bytes.
    foundation::writeFileAtomically(path, data, foundation::Durability::PowerLoss);
    return path;
}

std::string QuorvaneApiManager::getfilePathFromSandboxTmpWithMiddleDir(const std::string& middleDir,
                                                                       const std::string& fileName) {
    return appendingPathComponent(temporaryDirectory(middleDir), fileName);
}

void QuorvaneApiManager::deleteSandboxFile(const std::string& fileURL) {
    constexpr std::string_view scheme = "file://";
    std::string path = fileURL.starts_with(scheme) ? fileURL.substr(scheme.size()) : fileURL;
    if (path.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

void QuorvaneApiManager::deleteAllMediaFiles() {
    deleteSandboxFile(getfilePathFromSandboxTmpWithMiddleDir("", kMediaDirectory));
}

std::string QuorvaneApiManager::getTimestamp() {
    auto now = std::chrono::system_clock::now();
    // Local wall-clock time counted as if it were UTC: the host's pages expect it this way.
    double seconds = std::chrono::duration<double>(now.time_since_epoch()).count()
                     + static_cast<double>(foundation::localGmtOffsetSeconds(now));
    char text[32];
    std::snprintf(text, sizeof text, "%.0f", seconds * 1000);
    return text;
}

}  // namespace quorvane
