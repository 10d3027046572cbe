#pragma once
// The service's XML documents: pure functions over bytes (no I/O), nullopt on malformed input.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/value.h"
#include "oss/oss_requests.h"

namespace quorvane::oss::xml {

// <Error> flattened: every child element's text under its name ("Code", "Message", ...).
std::optional<Value> parseErrorDocument(std::string_view body);

// <InitiateMultipartUploadResult>: the UploadId (non-empty).
std::optional<std::string> parseInitiateMultipartUpload(std::string_view body);

struct ListPartsPage {
    std::vector<OSSPartInfo> parts;
    bool isTruncated = false;
    int nextPartNumberMarker = 0;
};
std::optional<ListPartsPage> parseListParts(std::string_view body);

struct CompleteResult {
    std::string location;
    std::string bucket;
    std::string key;
    std::string eTag;
};
std::optional<CompleteResult> parseCompleteMultipartUpload(std::string_view body);

// <CompleteMultipartUpload> with one <Part> per entry, in the given order.
std::string buildCompleteMultipartUpload(const std::vector<OSSPartInfo>& parts);

}  // namespace quorvane::oss::xml
