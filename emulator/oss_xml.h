#pragma once
// The XML documents object storage answers with, and the one it reads (CompleteMultipartUpload).
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"
#include "emulator/util.h"

namespace quorvane::emulator {

std::string errorXml(const std::string& code, const std::string& message, const std::string& requestId,
                     const std::string& hostId, const Pairs& extra);
std::string initiateResultXml(const std::string& bucket, const std::string& key, const std::string& uploadId);

struct ListPartsPage {
    std::string bucket, key, uploadId;
    int marker = 0;
    int nextMarker = 0;
    int maxParts = 1000;
    bool truncated = false;
    std::vector<PartInfo> parts;
    bool withCrc64 = true;  // each part's HashCrc64ecma
};
std::string listPartsXml(const ListPartsPage& page);
std::string completeResultXml(const std::string& location, const std::string& bucket, const std::string& key,
                              const std::string& etag);

struct CompletePart {
    int number = 0;
    std::string etag;  // quotes stripped
};
// nullopt when the body is not a well-formed CompleteMultipartUpload document.
std::optional<std::vector<CompletePart>> parseCompleteBody(const std::string& body);

}  // namespace quorvane::emulator
