#pragma once
// Where `quorvane upload` keeps what lets a second run continue the first: the embedded cloud's
// storage, the engine's checkpoint records and the resume cache, all under the user's cache.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::app {

struct UploadCachePaths {
    std::string root;          // ${XDG_CACHE_HOME:-~/.cache}/quorvane
    std::string cloudStorage;  // the embedded cloud's objects and open uploads
    std::string recordDir;     // the engine's multipart checkpoints
    std::string defaultsFile;  // the user-defaults store holding the resume cache
};

// `embedded` keeps the local cloud's records apart from those of real services.
UploadCachePaths uploadCachePaths(bool embedded);
// Creates the directories; false (with `error` set) when one cannot be made.
bool prepareUploadCache(const UploadCachePaths& paths, std::string& error);

// CRC-64 of the whole file, read in pieces; nullopt when it cannot be read.
std::optional<std::uint64_t> fileCrc64(const std::string& path);

}  // namespace quorvane::app
