// Temporary files and the timestamp.
#include <chrono>
#include <cstdio>

#include "api/QuorvaneApiManager.h"
#include "foundation/dates.h"
#include "foundation/sandbox_paths.h"

namespace quorvane {

std::string QuorvaneApiManager::getPathFromSandboxTempWithMiddleDir(const std::string& middleDir,
                                                                    const std::string& fileName,
                                                                    const std::string& fileSuffix) {
    return foundation::sandboxTempPath(middleDir, fileName, fileSuffix);
}

std::string QuorvaneApiManager::saveFile(const std::string& data, const std::string& toSandboxTempWithMiddleDir,
                                         const std::string& fileSuffix) {
    return foundation::saveToSandboxTemp(data, toSandboxTempWithMiddleDir, fileSuffix);
}

std::string QuorvaneApiManager::getfilePathFromSandboxTmpWithMiddleDir(const std::string& middleDir,
                                                                       const std::string& fileName) {
    return foundation::sandboxTempFilePath(middleDir, fileName);
}

void QuorvaneApiManager::deleteSandboxFile(const std::string& fileURL) { foundation::deleteSandboxFile(fileURL); }

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
