#pragma once
// Paths under the process's temporary directory, grouped by a middle directory ("media", "scan", ...).
// The façade and the upload bridge both keep their files there.
#include <string>

namespace quorvane::foundation {

// Where captured and downloaded media wait to be uploaded.
inline constexpr const char* kMediaDirectory = "media";

// `<tmp>/<middleDir>/<fileName>.<fileSuffix>`, creating the directory; a unique name when `fileName` is empty.
std::string sandboxTempPath(const std::string& middleDir, const std::string& fileName, const std::string& fileSuffix);
// `<tmp>/<middleDir>/<fileName>`, nothing created; `<tmp>` alone for an empty `middleDir`.
std::string sandboxTempFilePath(const std::string& middleDir, const std::string& fileName);
// Writes `data` (synced: the caller may have no other copy) to a new unique file; returns its path.
std::string saveToSandboxTemp(const std::string& data, const std::string& middleDir, const std::string& fileSuffix);
// Removes a file or a directory tree, given as a path or a file:// URL; errors are ignored.
void deleteSandboxFile(const std::string& fileURL);

}  // namespace quorvane::foundation
