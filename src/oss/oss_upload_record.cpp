#include "oss/oss_upload_record.h"

#include <filesystem>

#include "foundation/temp_files.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"

namespace quorvane::oss {

std::optional<std::string> recordedUploadId(const std::string& recordDirectoryPath, const std::string& bucket,
                                            const std::string& objectKey, const std::string& fileURL,
                                            std::int64_t partSize) {
    if (recordDirectoryPath.empty()) return std::nullopt;
    Error error;
    auto file = inspectLocalFile(fileURL, &error);
    if (!file) return std::nullopt;
    auto path = std::filesystem::path(recordDirectoryPath) / checkpointFileName(bucket, objectKey, file->path);
    auto text = foundation::readFile(path.string());
    auto record = text ? parseCheckpoint(*text) : std::nullopt;
    if (!record || record->uploadId.empty()) return std::nullopt;
    if (record->bucket != bucket || record->objectKey != objectKey || record->filePath != file->path ||
        record->fileSize != file->size || record->fileMtimeNs != file->mtimeNs || record->partSize != partSize)
        return std::nullopt;
    return record->uploadId;
}

}  // namespace quorvane::oss
