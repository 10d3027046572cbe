#pragma once
// The optional parameters of the CreateUploadVideo and CreateUploadImage requests, built in one place
// for the upload client and the short-video client.
#include <optional>
#include <string>

#include "foundation/value.h"

namespace quorvane {

struct VODCreateUploadFields {
    std::optional<std::string> coverUrl;
    std::string fileSize = "0";  // decimal text
    std::optional<std::string> description;
    std::optional<long long> cateId;
    std::optional<std::string> tags;
    std::optional<std::string> storageLocation;
    std::optional<std::string> templateGroupId;
    bool transcode = true;
    std::optional<std::string> appId;
    std::optional<std::string> workflowId;
    std::optional<std::string> userData;  // already the final text (with the file's facts)
    // Whether an empty template group id counts as none when deciding "TranscodeMode": it does for
    // the upload client; the short-video client looks only at whether one was given.
    bool emptyTemplateGroupIsNone = true;
};

// In the order the service documents them; a value that is absent is left out, "AppId" and
// "WorkflowId" also when empty.
Value createUploadVideoParams(const VODCreateUploadFields& fields);

struct VODCreateImageFields {
    std::string imagePath;  // its extension, in lower case, is the "ImageExt"
    std::optional<std::string> title;
    std::optional<std::string> description;
    std::optional<long long> cateId;
    std::optional<std::string> tags;
    std::optional<std::string> storageLocation;
    std::optional<std::string> appId;
    std::optional<std::string> userData;
};

// "ImageExt" always (empty without an extension); the others when present, "AppId" when not empty.
Value createUploadImageParams(const VODCreateImageFields& fields);

}  // namespace quorvane
