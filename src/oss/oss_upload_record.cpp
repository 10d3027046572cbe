#include "oss/oss_upload_record.h"

#include <filesystem>

#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"
#include "oss/oss_endpoint.h"

namespace quorvane::oss {

std::optional<std::string> recordedUploadId(const std::string& recordDirectoryPath, const std::string& endpoint,
                                            const std::string& bucket, const std::string& objectKey,
                                            const std::string& fileURL, std::int64_t partSize) {
    if (recordDirectoryPath.empty()) return std::nullopt;
    std::string why;
    auto service = parseEndpoint(endpoint, false, &why);
    if (!service) return std::nullopt;
    const auto serviceName = checkpointEndpoint(*service);
    Error error;
    auto file = inspectLocalFile(fileURL, &error);
    if (!file) return std::nullopt;
    auto path = std::filesystem::path(recordDirectoryPath) / checkpointFileName(serviceName, bucket, objectKey, file->path);
    auto text = readRecordFile(path.string());
    auto record = text.kind == RecordFile::Kind::Read ? parseCheckpoint(text.text) : std::nullopt;
    if (!record || record->uploadId.empty()) return std::nullopt;
    if (record->endpoint != serviceName || record->bucket != bucket || record->objectKey != objectKey ||
        record->filePath != file->path || record->file != file->state() || record->partSize != partSize)
        return std::nullopt;
    return record->uploadId;
}

}  // namespace quorvane::oss
