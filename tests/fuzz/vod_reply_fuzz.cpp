// Feeds arbitrary bytes to the video service's reply handling as the engine reads a reply: the JSON
// parse, the fields it picks out, and the upload auth and address inside them. A refused reply always
// says why; nothing may crash or throw.
#include <cstddef>
#include <cstdint>
#include <string>

#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODUploadAuthParser.h"
#include "foundation/value.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string body(reinterpret_cast<const char*>(data), size);
    std::optional<quorvane::Error> error;
    auto reply = quorvane::parseVodReply(body, error);
    if (!reply) {
        if (!error) __builtin_trap();
        return 0;
    }
    for (const char* field : {"RequestId", "VideoId", "ImageURL", "Code", "Message"})
        (void)quorvane::foundation::stringAt(*reply, field);
    if (auto auth = quorvane::foundation::stringAt(*reply, "UploadAuth")) {
        auto parsed = quorvane::parseUploadAuthText(*auth);
        if (parsed) (void)parsed.value->expireTime();
        else if (parsed.error.empty()) __builtin_trap();
    }
    if (auto address = quorvane::foundation::stringAt(*reply, "UploadAddress")) {
        auto parsed = quorvane::parseUploadAddressText(*address);
        if (!parsed && parsed.error.empty()) __builtin_trap();
    }
    return 0;
}
