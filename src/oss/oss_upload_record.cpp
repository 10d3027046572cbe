#include "oss/oss_upload_record.h"

#include <filesystem>

#include "foundation/temp_files.h"
#include "oss/oss_body.h"
#include "oss/oss_checkpoint.h"

namespace quorvane::oss {

namespace {

// The record of that upload, when readable and the file is unchanged since (size and modification time).
auto matchingRecord(const std::string& recordDirectoryPath, const std::string& bucket, const std::string& objectKey,
                    const std::string& fileURL, std::int64_t partSize) -> decltype(parseCheckpoint("")) {
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
    return record;
}

}  // namespace

std::optional<std::string> recordedUploadId(const std::string& recordDirectoryPath, const std::string& bucket,
                                            const std::string& objectKey, const std::string& fileURL,
                                            std::int64_t partSize) {
    auto record = matchingRecord(recordDirectoryPath, bucket, objectKey, fileURL, partSize);
    if (!record) return std::nullopt;
    return record->uploadId;
}

std::optional<std::uint64_t> recordedUploadBytes(const std::string& recordDirectoryPath, const std::string& fileURL,
                                                 std::int64_t partSize) {
    Error error;
    auto file = inspectLocalFile(fileURL, &error);
    std::error_code ec;
    if (!file || recordDirectoryPath.empty() || !std::filesystem::is_directory(recordDirectoryPath, ec))
        return std::nullopt;
    std::optional<std::uint64_t> best;
    for (const auto& entry : std::filesystem::directory_iterator(recordDirectoryPath, ec)) {
        if (!entry.is_regular_file(ec)) continue;
        auto text = foundation::readFile(entry.path().string());
        auto record = text ? parseCheckpoint(*text) : std::nullopt;
        if (!record || record->filePath != file->path || record->fileSize != file->size ||
            record->fileMtimeNs != file->mtimeNs || record->partSize != partSize || record->parts.empty())
            continue;
        std::uint64_t stored = 0;
        for (const auto& [number, part] : record->parts) stored += static_cast<std::uint64_t>(part.size);
        if (!best || stored > *best) best = stored;
    }
    return best;
}

}  // namespace quorvane::oss
