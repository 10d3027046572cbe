#pragma once
// The record of a resumable upload: which parts of which local file are stored under which upload
// id. Kept as JSON in the record directory, written atomically, so a crash leaves either the old or
// the new record. Parsing is a pure function; anything malformed is rejected as a whole.
//
// Records are written without a sync to disk (foundation::Durability::ProcessCrash): a record lost
// with a power cut only costs sending its parts again under a new upload (the local file holds the
// bytes, and a half-written record is rejected whole), while a sync per save would stall a part
// slot on every checkpoint.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "oss/oss_requests.h"

namespace quorvane::oss {

struct OSSUploadCheckpoint {
    std::string bucket;
    std::string objectKey;
    std::string filePath;
    std::string uploadId;
    std::uint64_t fileSize = 0;
    std::int64_t fileMtimeNs = 0;
    std::int64_t partSize = 0;
    std::map<int, OSSPartInfo> parts;  // stored and checked parts, by number
};

std::string serializeCheckpoint(const OSSUploadCheckpoint& checkpoint);
std::optional<OSSUploadCheckpoint> parseCheckpoint(std::string_view text);
// The record's file name for an upload of `filePath` to bucket/key (a digest, so any key fits).
std::string checkpointFileName(const std::string& bucket, const std::string& objectKey, const std::string& filePath);

}  // namespace quorvane::oss
