#include "foundation/sandbox_paths.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "foundation/temp_files.h"

namespace quorvane::foundation {
namespace {

// Joins path components the way file paths are joined everywhere here: one '/', no trailing '/'.
std::string appendingPathComponent(std::string base, const std::string& component) {
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    if (component.empty()) return base;
    return base + "/" + component;
}

std::string middleDirectory(const std::string& middleDir) {
    std::string root = temporaryDirectory();
    return middleDir.empty() ? root : appendingPathComponent(root, middleDir);
}

}  // namespace

std::string sandboxTempPath(const std::string& middleDir, const std::string& fileName, const std::string& fileSuffix) {
    std::string directory = middleDirectory(middleDir);
    std::error_code ignored;
    if (!std::filesystem::exists(directory, ignored)) std::filesystem::create_directories(directory, ignored);
    std::string name = fileName.empty() ? globallyUniqueString() : fileName;
    return appendingPathComponent(directory, name + "." + fileSuffix);
}

std::string sandboxTempFilePath(const std::string& middleDir, const std::string& fileName) {
    return appendingPathComponent(middleDirectory(middleDir), fileName);
}

std::string saveToSandboxTemp(const std::string& data, const std::string& middleDir, const std::string& fileSuffix) {
    std::string path = sandboxTempPath(middleDir, "", fileSuffix);
    writeFileAtomically(path, data, Durability::PowerLoss);
    return path;
}

void deleteSandboxFile(const std::string& fileURL) {
    constexpr std::string_view scheme = "file://";
    std::string path = fileURL.starts_with(scheme) ? fileURL.substr(scheme.size()) : fileURL;
    if (path.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

}  // namespace quorvane::foundation
