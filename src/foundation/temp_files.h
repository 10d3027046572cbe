#pragma once
// Temporary files and small file helpers.
#include <optional>
#include <string>

namespace quorvane::foundation {

// The process's temporary directory, with a trailing '/' (NSTemporaryDirectory): the one the host set,
// else "/tmp/quorvane-<uid>/".
std::string temporaryDirectory();
// Sets it (the host, once; tests give each case its own).
void setTemporaryDirectory(const std::string& dir);
// A string unique across processes, threads and calls (globallyUniqueString).
std::string globallyUniqueString();
// What a replaced file must survive. Either way a reader sees the old bytes or the new ones, never a mix.
enum class Durability {
    // A crash of this process: the rename alone. A power cut may lose the write (the old bytes stay,
    // or on some file systems the file ends empty). For files whose loss costs only work done again.
    ProcessCrash,
    // A power cut too: the file is synced before the rename and its directory after, which costs
    // milliseconds to tens of milliseconds each on a busy disk. For bytes nothing else holds.
    PowerLoss,
};
// Writes the bytes to a temporary file beside `path` and renames it over `path`.
bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         Durability durability = Durability::ProcessCrash);
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
