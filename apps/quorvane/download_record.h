#pragma once
// What lets a second `quorvane get` continue the first: the bytes already written sit in DEST plus
// ".quorvane-part", beside a record of the object they came from (bucket, key, ETag, size). A record
// that names another object, or another version of it, starts the download over.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::app {

struct DownloadRecord {
    std::string bucket, key, eTag;
    std::uint64_t size = 0;
    bool operator==(const DownloadRecord&) const = default;
};

std::string partialPathFor(const std::string& destination);  // DEST.quorvane-part
std::string recordPathFor(const std::string& destination);   // DEST.quorvane-part.json

std::optional<DownloadRecord> readDownloadRecord(const std::string& path);
bool writeDownloadRecord(const std::string& path, const DownloadRecord& record);

}  // namespace quorvane::app
