#pragma once
// What the short-video client uploads with: the video's metadata, and what a finished job hands back.
#include <optional>
#include <string>

namespace quorvane {

class VodSVideoInfo {
public:
    std::optional<std::string> title;     // required
    std::optional<std::string> tags;      // comma-separated
    std::optional<std::string> desc;
    std::optional<long long> cateId;
    std::optional<std::string> userData;  // a JSON object text
    bool isProcess = true;
    bool isShowWaterMark = false;
    std::optional<long long> priority = 6;
    std::optional<std::string> storageLocation;
    std::optional<std::string> templateGroupId;
};

class VodSVideoUploadResult {
public:
    std::optional<std::string> videoId;
    std::optional<std::string> imageUrl;
    std::optional<std::string> bucket;
    std::optional<std::string> endpoint;
};

}  // namespace quorvane
