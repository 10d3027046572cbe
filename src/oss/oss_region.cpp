#include "oss/oss_region.h"

#include <algorithm>
#include <cctype>

namespace quorvane::oss {

bool isValidRegion(const std::string& region) {
    return !region.empty() && std::all_of(region.begin(), region.end(), [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || std::isdigit(c) || c == '-';
    });
}

std::optional<std::string> regionFromEndpoint(const std::string& endpoint) {
    std::string host = endpoint;
    if (auto scheme = host.find("://"); scheme != std::string::npos) host.erase(0, scheme + 3);
    host = host.substr(0, host.find_first_of("/?#:"));
    std::transform(host.begin(), host.end(), host.begin(), [](unsigned char c) { return std::tolower(c); });
    const std::string suffix = ".aliyuncs.com";
    if (host.size() <= suffix.size() || host.compare(host.size() - suffix.size(), suffix.size(), suffix) != 0)
        return std::nullopt;
    host.resize(host.size() - suffix.size());
    // A bucket may stand in front: "<bucket>.oss-<region>".
    auto label = host.substr(host.rfind('.') == std::string::npos ? 0 : host.rfind('.') + 1);
    if (label.rfind("oss-", 0) != 0) return std::nullopt;
    auto region = label.substr(4);
    const std::string internal = "-internal";
    if (region.size() > internal.size() &&
        region.compare(region.size() - internal.size(), internal.size(), internal) == 0)
        region.resize(region.size() - internal.size());
    if (region.rfind("accelerate", 0) == 0 || !isValidRegion(region)) return std::nullopt;
    return region;
}

}  // namespace quorvane::oss
