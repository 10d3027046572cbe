// Feeds arbitrary bytes to the upload auth and address parsers, both as the raw text and wrapped in
// base64 so the JSON layer gets explored too. Any crash, exception or sanitizer report is a bug.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "VODUpload/src/VODUploadAuthParser.h"
#include "foundation/crypto.h"

namespace {

void parseBoth(std::string_view text) {
    auto auth = quorvane::parseUploadAuthText(text);
    if (auth) {
        (void)auth.value->expireTime();
    } else if (auth.error.empty()) {
        __builtin_trap();  // a refusal always carries its log message
    }
    auto address = quorvane::parseUploadAddressText(text);
    if (!address && address.error.empty()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    parseBoth(text);
    parseBoth(quorvane::foundation::base64Encode(text));
    return 0;
}
