#pragma once
// The endpoint a client talks to, and the URLs of buckets and objects on it.
#include <optional>
#include <string>

#include "oss/oss_signer.h"

namespace quorvane::oss {

struct OSSEndpoint {
    std::string scheme = "https";
    std::string hostPort;  // host[:port]
    bool pathStyle = false;
};

// "host", "https://host", "http://127.0.0.1:9000/" ... nullopt with *why set when there is no
// usable host.
std::optional<OSSEndpoint> parseEndpoint(const std::string& endpoint, bool forcePathStyle, std::string* why);
// OSS bucket naming: 3 to 63 lower-case letters, digits and hyphens, a letter or digit at each end.
bool isValidBucketName(const std::string& name);
// Whether the host cannot take a bucket sub-domain (IP literal, "localhost").
bool isIpOrLocalHost(const std::string& host);
// Percent-encodes an object key for a URL path, keeping '/'.
std::string encodeObjectKey(const std::string& key);
// Full URL of the bucket/object with the query (values percent-encoded).
std::string buildUrl(const OSSEndpoint& endpoint, const std::string& bucket, const std::string& objectKey,
                     const OSSQuery& query);

}  // namespace quorvane::oss
