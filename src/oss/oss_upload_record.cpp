#include "oss/oss_upload_record.h"

#include <filesystem>

#include "oss/oss_checkpoint.h"
#include "oss/oss_endpoint.h"

namespace quorvane::oss {

std::optional<OSSRecordedUpload> recordedUpload(const std::string& recordDirectoryPath, const std::string& endpoint,
                                                const std::string& bucket, const std::string& objectKey,
                                                const OSSLocalFile& file, std::int64_t partSize) {
    if (recordDirectoryPath.empty()) return std::nullopt;
    std::string why;
    auto service = parseEndpoint(endpoint, false, &why);
    if (!service) return std::nullopt;
    const auto serviceName = checkpointEndpoint(*service);
    auto path = std::filesystem::path(recordDirectoryPath) / checkpointFileName(serviceName, bucket, objectKey, file.path);
    auto text = readRecordFile(path.string());
    auto record = text.kind == RecordFile::Kind::Read ? parseCheckpoint(text.text) : std::nullopt;
    if (!record || record->uploadId.empty() ||
        !recordFits(*record, serviceName, bucket, objectKey, file.path, file.state(), partSize))
        return std::nullopt;
    OSSRecordedUpload found{record->uploadId, 0};
    for (const auto& [number, part] : record->parts) found.bytesStored += static_cast<std::uint64_t>(part.size);
    return found;
}

}  // namespace quorvane::oss
