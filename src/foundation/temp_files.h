#pragma once
// Temporary files and small file helpers.
#include <optional>
#include <string>

namespace quorvane::foundation {

// The process's temporary directory, with a trailing '/' (NSTemporaryDirectory). It is
// $QUORVANE_TMPDIR if set, else $TMPDIR, else /tmp, plus "/quorvane-<uid>/".
std::string temporaryDirectory();
// Overrides it (tests give each case its own).
void setTemporaryDirectory(const std::string& dir);
// A string unique across processes, threads and calls (globallyUniqueString).
std::string globallyUniqueString();
// Writes the bytes to a temporary file beside `path` and renames it over `path` (fsync first).
bool writeFileAtomically(const std::string& path, std::string_view bytes);
std::optional<std::string> readFile(const std::string& path);

// A directory removed with its contents when the object goes (tests).
class ScopedTempDir {
public:
    ScopedTempDir();
    ~ScopedTempDir();
    ScopedTempDir(const ScopedTempDir&) = delete;
    ScopedTempDir& operator=(const ScopedTempDir&) = delete;
    const std::string& path() const { return path_; }
private:
    std::string path_;
};

}  // namespace quorvane::foundation
