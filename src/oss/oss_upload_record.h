#pragma once
// The one question asked before an upload begins: did an earlier run leave an upload of this very file
// that can be continued?
#include <cstdint>
#include <optional>
#include <string>

#include "oss/oss_local_file.h"

namespace quorvane::oss {

struct OSSRecordedUpload {
    std::string uploadId;
    std::uint64_t bytesStored = 0;  // of the parts the record holds as stored
};

// The upload recorded in `recordDirectoryPath` for uploading `file` (as inspectLocalFile found it) to
// bucket/objectKey on the service at `endpoint` in parts of `partSize`, when the record is readable and
// fits (recordFits); otherwise none. Reads one small file; sends nothing, looks at the file no more.
std::optional<OSSRecordedUpload> recordedUpload(const std::string& recordDirectoryPath, const std::string& endpoint,
                                                const std::string& bucket, const std::string& objectKey,
                                                const OSSLocalFile& file, std::int64_t partSize);

}  // namespace quorvane::oss
