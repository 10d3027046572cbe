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

#include "oss/oss_endpoint.h"
#include "oss/oss_requests.h"

namespace quorvane::oss {

struct OSSUploadCheckpoint {
    std::string endpoint;  // checkpointEndpoint() of the service the upload lives on
    std::string bucket;
    std::string objectKey;
    std::string filePath;
    std::string uploadId;
    OSSFileState file;  // the file's state when its parts were sent
    std::int64_t partSize = 0;
    std::map<int, OSSPartInfo> parts;  // stored and checked parts, by number
};

// Records are read only as what they should be: a regular file, not followed through a symbolic link,
// never waited on (a FIFO), of at most kMaxRecordBytes (a record of 10000 parts takes about 1.2 MB).
constexpr std::uint64_t kMaxRecordBytes = 2 * 1024 * 1024;
struct RecordFile {
    enum class Kind { Missing, Unusable, Read } kind = Kind::Missing;
    std::string text;  // Read: the bytes
    std::string why;   // Unusable: what is wrong with it
};
RecordFile readRecordFile(const std::string& path);

std::string serializeCheckpoint(const OSSUploadCheckpoint& checkpoint);
std::optional<OSSUploadCheckpoint> parseCheckpoint(std::string_view text);
// What a record that is not a valid record still says about its upload, so the upload can be aborted
// rather than left open: endpoint, bucket, key, upload id and file path when it names them (the
// other fields stay empty). None when it does not name an upload.
std::optional<OSSUploadCheckpoint> parseCheckpointUpload(std::string_view text);
// The record's file name for an upload of `filePath` to bucket/key on the service at `endpoint` (a
// digest, so any key fits). An upload id means nothing to another service: the same file and key sent
// elsewhere has a record of its own.
std::string checkpointFileName(const std::string& endpoint, const std::string& bucket, const std::string& objectKey,
                               const std::string& filePath);
// The service as records name it: scheme and host[:port], so "HTTP://h:80/" and "http://h:80" agree.
std::string checkpointEndpoint(const OSSEndpoint& endpoint);
// Whether `record` was made uploading the file at `filePath` to bucket/objectKey on `serviceName` (as
// checkpointEndpoint names it) in parts of `partSize`, with the file unchanged since (`file`).
bool recordFits(const OSSUploadCheckpoint& record, const std::string& serviceName, const std::string& bucket,
                const std::string& objectKey, const std::string& filePath, const OSSFileState& file,
                std::int64_t partSize);

}  // namespace quorvane::oss
