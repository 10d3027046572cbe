#include "upload_bridge/UploadPaths.h"

#include "foundation/sandbox_paths.h"

namespace quorvane {
namespace {
const std::string& separator() {
    static const std::string text = std::string("/") + foundation::kMediaDirectory + "/";
    return text;
}

// The last piece of a left-to-right split at the separator (matches do not overlap).
std::optional<std::string> lastPiece(const std::string& hostPath) {
    std::optional<std::size_t> lastStart;
    for (auto at = hostPath.find(separator()); at != std::string::npos; at = hostPath.find(separator(), *lastStart))
        lastStart = at + separator().size();
    if (!lastStart) return std::nullopt;
    return hostPath.substr(*lastStart);
}

}  // namespace

bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::optional<std::string> mediaFileName(const std::string& hostPath) {
    auto name = lastPiece(hostPath);
    if (!name || !isPlainFileName(*name)) return std::nullopt;
    return name;
}

std::string lastMediaComponent(const std::string& hostPath) {
    std::string name = lastPiece(hostPath).value_or(hostPath);
    return isPlainFileName(name) ? name : "";
}

std::string localMediaPath(const std::string& hostPath) {
    return foundation::sandboxTempFilePath(foundation::kMediaDirectory, mediaFileName(hostPath).value_or(""));
}

}  // namespace quorvane
