#pragma once
// Metadata of one upload: request parameters of the create-upload calls and, through toJson,
// the "x-oss-notification" header sent with the multipart completion.
#include <optional>
#include <string>

#include "foundation/value.h"

namespace quorvane {

class VodInfo {
public:
    VodInfo() = default;

    bool isProcess = true;
    bool isShowWaterMark = false;
    std::optional<std::string> title;
    std::optional<std::string> desc;
    std::optional<long long> cateId;
    std::optional<std::string> coverUrl;
    std::optional<std::string> userData;
    std::optional<std::string> tags;
    std::optional<std::string> storageLocation;
    std::optional<std::string> templateGroupId;
    std::optional<std::string> imageType = std::string("cover");

    const std::optional<int>& priority() const { return priority_; }
    // Keeps the previous priority unless the value lies in 1...10.
    void setPriority(long long priority);

    // The notification document {"Vod": {...}} before encoding.
    Value notificationValue() const;
    // base64 of the compact notification JSON; "" when it cannot be serialised.
    std::string toJson() const;

private:
    std::optional<int> priority_ = 6;
};

}  // namespace quorvane
