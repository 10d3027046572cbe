#pragma once
// Looking up the record an earlier run left for an upload, before deciding to initiate another.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::oss {

// The upload id recorded in `recordDirectoryPath` for uploading `fileURL` to bucket/objectKey in
// parts of `partSize`, when the record is readable and the file is unchanged since (size and
// modification time); otherwise none. Reads one small file; sends nothing.
std::optional<std::string> recordedUploadId(const std::string& recordDirectoryPath, const std::string& bucket,
                                            const std::string& objectKey, const std::string& fileURL,
                                            std::int64_t partSize);
// The bytes an earlier, interrupted upload of this file stored, from any record in `recordDirectoryPath`
// for the same file (path, size, modification time) and part size; none when no record holds a part.
// For showing where a resumed upload starts, whatever key the upload was given.
std::optional<std::uint64_t> recordedUploadBytes(const std::string& recordDirectoryPath, const std::string& fileURL,
                                                 std::int64_t partSize);

}  // namespace quorvane::oss
