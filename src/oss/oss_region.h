#pragma once
// Regions as V4 signatures name them: the short id ("cn-hangzhou"), never the endpoint's host.
#include <optional>
#include <string>

namespace quorvane::oss {

// A short region id: lower-case letters, digits and '-', not empty.
bool isValidRegion(const std::string& region);
// The region the service's own endpoint names: "oss-<region>.aliyuncs.com" and
// "oss-<region>-internal.aliyuncs.com", with or without a scheme, a port or a bucket in front. nullopt
// for other hosts (IP addresses, custom domains, the acceleration endpoints), which need it given.
std::optional<std::string> regionFromEndpoint(const std::string& endpoint);

}  // namespace quorvane::oss
