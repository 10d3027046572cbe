#pragma once
// What an upload knows of its local file, and how it finds out: the file's identity taken once, before
// the first byte, and compared again before the last.
#include <optional>
#include <string>

#include "foundation/error.h"
#include "oss/oss_requests.h"

namespace quorvane::oss {

struct OSSLocalFile : OSSFileState {
    std::string path;
    const OSSFileState& state() const { return *this; }
};

// "file:///a/b" -> "/a/b"; a plain path is returned as it is.
std::string pathFromFileURL(const std::string& fileURL);
// The file's state (size, times, inode, device), or a clear error: missing, a directory, not a regular
// file, unreadable. With `known`, the state an earlier inspection found: a file still in that state is
// not opened again (its permissions have not changed, or its ctime would have).
std::optional<OSSLocalFile> inspectLocalFile(const std::string& fileURL, Error* error,
                                             const OSSFileState* known = nullptr);
// The file's state now, by one stat; none when it cannot be had.
std::optional<OSSFileState> currentFileState(const std::string& path);
// The error of an upload whose file is no longer as it was when the upload began (Code "FileChanged").
Error fileChangedError(const std::string& path);

}  // namespace quorvane::oss
