#pragma once
// A local file described the way the video service's progress API identifies it.
#include <cstdint>
#include <optional>
#include <string>

#include "foundation/dates.h"
#include "foundation/value.h"

namespace quorvane {

class VODInnerFileInfo {
public:
    // Fills every field from the file; fields that cannot be had stay "" (type "other").
    explicit VODInnerFileInfo(std::string filePath);

    std::string fileName;
    std::string fileSize = "0";
    std::string fileCreateTime;
    std::string fileHash;
    std::string filePath;
    std::string fileType = "other";

    // MD5 (lower-case hex) of at most maxHashSize leading bytes, read 256 bytes at a time;
    // nullopt when the file cannot be opened or read.
    static std::optional<std::string> md5WithPath(const std::string& path, std::uint64_t maxHashSize);
    // "video", "audio", "img" or "other" for a file-name extension.
    static std::string fileTypeForExtension(const std::string& extension);

    // {"FileName", "FileSize", "FileCreateTime", "FileHash"}.
    Value toDictionary() const;
    // The identity text of the progress API; values are put in without escaping.
    std::string toUrlString() const;

    static constexpr std::uint64_t kMaxHashSize = 1048576;

private:
    void setup();
};

// File facts the engine's identities are built from.
struct VODFileAttributes {
    std::int64_t size = 0;
    // The birth time where the file system keeps one, else the last modification time.
    std::optional<foundation::SystemTime> creationDate;
};
// nullopt when the file does not exist or cannot be examined.
std::optional<VODFileAttributes> vodFileAttributes(const std::string& path);
// The last path component ("" for none), ignoring trailing slashes.
std::string vodLastPathComponent(const std::string& path);
// The extension of the last path component, without the dot ("" for none).
std::string vodPathExtension(const std::string& path);

}  // namespace quorvane
