// Feeds arbitrary bytes to the resumable-upload record parser. A record it accepts must survive
// serialise -> parse unchanged, so a resumed upload sees exactly what was saved.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "oss/oss_checkpoint.h"

using namespace quorvane::oss;

namespace {

bool same(const OSSUploadCheckpoint& a, const OSSUploadCheckpoint& b) {
    if (a.bucket != b.bucket || a.objectKey != b.objectKey || a.filePath != b.filePath || a.uploadId != b.uploadId ||
        a.file != b.file || a.partSize != b.partSize ||
        a.parts.size() != b.parts.size())
        return false;
    for (const auto& [number, part] : a.parts) {
        auto it = b.parts.find(number);
        if (it == b.parts.end() || it->second.partNum != part.partNum || it->second.eTag != part.eTag ||
            it->second.size != part.size || it->second.crc64 != part.crc64)
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto first = parseCheckpoint(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!first) return 0;
    auto text = serializeCheckpoint(*first);
    auto second = parseCheckpoint(text);
    if (!second || !same(*first, *second) || serializeCheckpoint(*second) != text) __builtin_trap();
    return 0;
}
