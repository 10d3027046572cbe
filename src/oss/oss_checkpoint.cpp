#include "oss/oss_checkpoint.h"

#include <exception>

#include "foundation/crypto.h"
#include "foundation/value.h"

namespace quorvane::oss {
namespace {
constexpr int kCheckpointVersion = 1;
}

std::string serializeCheckpoint(const OSSUploadCheckpoint& c) {
    Value parts = Value::array();
    for (const auto& [number, p] : c.parts)
        parts.push_back({{"partNumber", p.partNum},
                         {"eTag", p.eTag},
                         {"size", p.size},
                         {"crc64", std::to_string(p.crc64)}});  // text: JSON readers lose 64-bit precision
    Value doc = {{"version", kCheckpointVersion}, {"bucket", c.bucket},       {"objectKey", c.objectKey},
                 {"filePath", c.filePath},        {"uploadId", c.uploadId},   {"fileSize", c.fileSize},
                 {"fileMtimeNs", c.fileMtimeNs},  {"partSize", c.partSize},   {"parts", parts}};
    return doc.dump();
}

std::optional<OSSUploadCheckpoint> parseCheckpoint(std::string_view text) {
    auto doc = foundation::parseJson(text);
    if (!doc || !doc->is_object()) return std::nullopt;
    try {
        const Value& d = *doc;
        if (d.at("version").get<int>() != kCheckpointVersion) return std::nullopt;
        OSSUploadCheckpoint c;
        c.bucket = d.at("bucket").get<std::string>();
        c.objectKey = d.at("objectKey").get<std::string>();
        c.filePath = d.at("filePath").get<std::string>();
        c.uploadId = d.at("uploadId").get<std::string>();
        c.fileSize = d.at("fileSize").get<std::uint64_t>();
        c.fileMtimeNs = d.at("fileMtimeNs").get<std::int64_t>();
        c.partSize = d.at("partSize").get<std::int64_t>();
        if (c.uploadId.empty() || c.partSize <= 0) return std::nullopt;
        for (const auto& p : d.at("parts")) {
            OSSPartInfo part;
            part.partNum = p.at("partNumber").get<int>();
            part.eTag = p.at("eTag").get<std::string>();
            part.size = p.at("size").get<std::int64_t>();
            part.crc64 = std::stoull(p.at("crc64").get<std::string>());
            if (part.partNum < 1 || part.partNum > 10000 || part.size <= 0 || c.parts.count(part.partNum))
                return std::nullopt;
            c.parts.emplace(part.partNum, part);
        }
        return c;
    } catch (const std::exception&) {
        return std::nullopt;  // a field missing or of the wrong type
    }
}

std::string checkpointFileName(const std::string& bucket, const std::string& objectKey, const std::string& filePath) {
    return foundation::md5Hex(bucket + "\n" + objectKey + "\n" + filePath) + ".upload.json";
}

}  // namespace quorvane::oss
