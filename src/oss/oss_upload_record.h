#pragma once
// Looking up the record an earlier run left for an upload, before deciding to initiate another.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::oss {

// The upload id recorded in `recordDirectoryPath` for uploading `fileURL` to bucket/objectKey on the
// service at `endpoint` in parts of `partSize`, when the record is readable and the file is unchanged
// since (size, times, inode, device); otherwise none. Reads one small file; sends nothing.
std::optional<std::string> recordedUploadId(const std::string& recordDirectoryPath, const std::string& endpoint,
                                            const std::string& bucket, const std::string& objectKey,
                                            const std::string& fileURL, std::int64_t partSize);

}  // namespace quorvane::oss
