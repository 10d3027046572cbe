// Feeds arbitrary bytes to the object-storage client's reply parsers (error documents, initiate,
// ListParts, complete). Whatever they accept must hold together: an accepted initiate names an upload,
// and the parts of an accepted ListParts page can be sent back in a complete request.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "oss/oss_xml.h"

using namespace quorvane::oss;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view body(reinterpret_cast<const char*>(data), size);
    if (auto error = xml::parseErrorDocument(body); error && !error->is_object()) __builtin_trap();
    if (auto id = xml::parseInitiateMultipartUpload(body); id && id->empty()) __builtin_trap();
    if (auto page = xml::parseListParts(body)) {
        auto complete = xml::buildCompleteMultipartUpload(page->parts);
        if (complete.find("<CompleteMultipartUpload") == std::string::npos) __builtin_trap();
    }
    (void)xml::parseCompleteMultipartUpload(body);
    return 0;
}
