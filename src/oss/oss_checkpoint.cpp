#include "oss/oss_checkpoint.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "foundation/crypto.h"
#include "foundation/value.h"

namespace quorvane::oss {
namespace {
// 2: the service's endpoint, and the file's change time, inode and device beside its size and
// modification time.
constexpr int kCheckpointVersion = 2;

// Text fields go in as they are when they are UTF-8; anything else (a Linux file name may be any bytes)
// goes in as base64 under "<name>Base64", so the record never loses or alters a byte.
void putText(Value& doc, const char* name, const std::string& text) {
    if (foundation::isValidUtf8(text)) doc[name] = text;
    else doc[std::string(name) + "Base64"] = foundation::base64Encode(text);
}

std::optional<std::string> textAt(const Value& doc, const char* name) {
    if (auto plain = foundation::stringAt(doc, name)) return plain;
    if (auto encoded = foundation::stringAt(doc, std::string(name) + "Base64")) return foundation::base64Decode(*encoded);
    return std::nullopt;
}

// An integer field within T's range; a float, a string or an out-of-range number is a bad record
// (converting 3.4e112 to an integer would be undefined).
template <class T>
std::optional<T> integerAt(const Value& doc, const char* name) {
    auto it = doc.find(name);
    if (it == doc.end()) return std::nullopt;
    if (it->is_number_unsigned()) {
        auto v = it->get<std::uint64_t>();
        if (v > static_cast<std::uint64_t>(std::numeric_limits<T>::max())) return std::nullopt;
        return static_cast<T>(v);
    }
    if (it->is_number_integer()) {
        auto v = it->get<std::int64_t>();
        if constexpr (std::is_unsigned_v<T>) {
            if (v < 0) return std::nullopt;
        } else if (v < static_cast<std::int64_t>(std::numeric_limits<T>::min()) ||
                   v > static_cast<std::int64_t>(std::numeric_limits<T>::max())) {
            return std::nullopt;
        }
        return static_cast<T>(v);
    }
    return std::nullopt;
}

// CRC-64 values are kept as decimal text: JSON readers lose 64-bit precision.
std::optional<std::uint64_t> crcAt(const Value& doc, const char* name) {
    auto text = foundation::stringAt(doc, name);
    if (!text || text->empty()) return std::nullopt;
    std::uint64_t value = 0;
    auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (ec != std::errc() || end != text->data() + text->size()) return std::nullopt;
    return value;
}

std::optional<OSSPartInfo> parsePart(const Value& p) {
    if (!p.is_object()) return std::nullopt;
    auto number = integerAt<int>(p, "partNumber");
    auto eTag = foundation::stringAt(p, "eTag");
    auto size = integerAt<std::int64_t>(p, "size");
    auto crc = crcAt(p, "crc64");
    if (!number || !eTag || !size || !crc || *number < 1 || *number > 10000 || *size <= 0) return std::nullopt;
    return OSSPartInfo{*number, *eTag, *size, *crc};
}

}  // namespace

RecordFile readRecordFile(const std::string& path) {
    using Kind = RecordFile::Kind;
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) return {Kind::Missing, {}, {}};
        return {Kind::Unusable, {}, errno == ELOOP ? "a symbolic link" : std::strerror(errno)};
    }
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat st {};
    if (::fstat(fd, &st) != 0) return {Kind::Unusable, {}, std::strerror(errno)};
    if (!S_ISREG(st.st_mode)) return {Kind::Unusable, {}, "not a regular file"};
    if (static_cast<std::uint64_t>(st.st_size) > kMaxRecordBytes) return {Kind::Unusable, {}, "too large"};
    RecordFile record{Kind::Read, {}, {}};
    char buffer[64 * 1024];
    for (;;) {
        const auto n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return {Kind::Unusable, {}, std::strerror(errno)};
        if (n == 0) break;
        // A file that grows while it is read is held to the same bound.
        if (record.text.size() + static_cast<std::size_t>(n) > kMaxRecordBytes) return {Kind::Unusable, {}, "too large"};
        record.text.append(buffer, static_cast<std::size_t>(n));
    }
    return record;
}

std::string serializeCheckpoint(const OSSUploadCheckpoint& c) {
    Value parts = Value::array();
    for (const auto& [number, p] : c.parts) {
        Value part = {{"partNumber", p.partNum}, {"size", p.size}, {"crc64", std::to_string(p.crc64)}};
        putText(part, "eTag", p.eTag);
        parts.push_back(std::move(part));
    }
    Value doc = {{"version", kCheckpointVersion}};
    putText(doc, "endpoint", c.endpoint);
    putText(doc, "bucket", c.bucket);
    putText(doc, "objectKey", c.objectKey);
    putText(doc, "filePath", c.filePath);
    putText(doc, "uploadId", c.uploadId);
    doc["fileSize"] = c.file.size;
    doc["fileMtimeNs"] = c.file.mtimeNs;
    doc["fileCtimeNs"] = c.file.ctimeNs;
    doc["fileInode"] = c.file.inode;
    doc["fileDevice"] = c.file.device;
    doc["partSize"] = c.partSize;
    doc["parts"] = std::move(parts);
    return foundation::toJsonText(doc);
}

bool recordFits(const OSSUploadCheckpoint& record, const std::string& serviceName, const std::string& bucket,
                const std::string& objectKey, const std::string& filePath, const OSSFileState& file,
                std::int64_t partSize) {
    return record.endpoint == serviceName && record.bucket == bucket && record.objectKey == objectKey &&
           record.filePath == filePath && record.file == file && record.partSize == partSize;
}

std::optional<OSSUploadCheckpoint> parseCheckpoint(std::string_view text) {
    auto doc = foundation::parseJson(text);
    if (!doc || !doc->is_object()) return std::nullopt;
    const Value& d = *doc;
    if (integerAt<int>(d, "version") != kCheckpointVersion) return std::nullopt;
    auto endpoint = textAt(d, "endpoint");
    auto bucket = textAt(d, "bucket");
    auto objectKey = textAt(d, "objectKey");
    auto filePath = textAt(d, "filePath");
    auto uploadId = textAt(d, "uploadId");
    auto fileSize = integerAt<std::uint64_t>(d, "fileSize");
    auto fileMtimeNs = integerAt<std::int64_t>(d, "fileMtimeNs");
    auto fileCtimeNs = integerAt<std::int64_t>(d, "fileCtimeNs");
    auto fileInode = integerAt<std::uint64_t>(d, "fileInode");
    auto fileDevice = integerAt<std::uint64_t>(d, "fileDevice");
    auto partSize = integerAt<std::int64_t>(d, "partSize");
    auto parts = d.find("parts");
    if (!endpoint || !bucket || !objectKey || !filePath || !uploadId || !fileSize || !fileMtimeNs || !fileCtimeNs || !fileInode ||
        !fileDevice || !partSize ||
        parts == d.end() || !parts->is_array() || uploadId->empty() || *partSize <= 0)
        return std::nullopt;
    OSSUploadCheckpoint c{*endpoint, *bucket, *objectKey, *filePath, *uploadId,
                          OSSFileState{*fileSize, *fileMtimeNs, *fileCtimeNs, *fileInode, *fileDevice}, *partSize, {}};
    for (const auto& p : *parts) {
        auto part = parsePart(p);
        if (!part || !c.parts.emplace(part->partNum, *part).second) return std::nullopt;
    }
    return c;
}

std::optional<OSSUploadCheckpoint> parseCheckpointUpload(std::string_view text) {
    auto doc = foundation::parseJson(text);
    if (!doc || !doc->is_object()) return std::nullopt;
    OSSUploadCheckpoint c;
    auto endpoint = textAt(*doc, "endpoint");
    auto bucket = textAt(*doc, "bucket");
    auto objectKey = textAt(*doc, "objectKey");
    auto uploadId = textAt(*doc, "uploadId");
    if (!bucket || !objectKey || !uploadId || uploadId->empty()) return std::nullopt;
    c.endpoint = endpoint.value_or("");
    c.bucket = *bucket;
    c.objectKey = *objectKey;
    c.uploadId = *uploadId;
    c.filePath = textAt(*doc, "filePath").value_or("");
    return c;
}

std::string checkpointFileName(const std::string& endpoint, const std::string& bucket, const std::string& objectKey,
                               const std::string& filePath) {
    return foundation::md5Hex(endpoint + "\n" + bucket + "\n" + objectKey + "\n" + filePath) + ".upload.json";
}

std::string checkpointEndpoint(const OSSEndpoint& endpoint) {
    std::string text = endpoint.scheme + "://" + endpoint.hostPort;
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace quorvane::oss
