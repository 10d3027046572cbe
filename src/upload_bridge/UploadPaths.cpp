#include "upload_bridge/UploadPaths.h"

#include "api/QuorvaneApiManager.h"

namespace quorvane {
namespace {
const std::string& separator() {
    static const std::string text = std::string("/") + kMediaDirectory + "/";
    return text;
}
}  // namespace

std::optional<std::string> mediaFileName(const std::string& hostPath) {
    // Pieces as a left-to-right split makes them (matches do not overlap).
    std::optional<std::size_t> lastStart;
    for (auto at = hostPath.find(separator()); at != std::string::npos; at = hostPath.find(separator(), *lastStart))
        lastStart = at + separator().size();
    if (!lastStart) return std::nullopt;
    return hostPath.substr(*lastStart);
}

std::string lastMediaComponent(const std::string& hostPath) {
    return mediaFileName(hostPath).value_or(hostPath);
}

std::string localMediaPath(const std::string& hostPath) {
    return QuorvaneApiManager::getfilePathFromSandboxTmpWithMiddleDir(kMediaDirectory, mediaFileName(hostPath).value_or(""));
}

}  // namespace quorvane
