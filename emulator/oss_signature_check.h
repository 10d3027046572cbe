#pragma once
// Server-side check of OSS header signatures, V1 and V4 (OSS4-HMAC-SHA256), written from the service's
// published rules.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "emulator/sts.h"
#include "emulator/util.h"

namespace quorvane::emulator {

struct OssSignedRequest {
    std::string method;
    Pairs headers;     // as received (any case)
    std::string bucket;  // "" for service-level requests
    std::string key;     // decoded
    Pairs params;        // decoded query parameters
};

struct OssAuthFailure {
    int status = 403;
    std::string code;
    std::string message;
    Pairs extra;  // extra elements of the error document, in order
};

using KeyLookup = std::function<KeyCheck(const std::string& keyId, const std::optional<std::string>& token)>;

struct OssSignaturePolicy {
    std::string region;    // the region V4 scopes must name
    bool acceptV1 = true;  // false: V1 refused, as the service does for buckets made since September 2025
};

// The canonical text a V1 client should have signed.
std::string ossStringToSign(const OssSignedRequest& request);
// The V4 canonical request for the given additional headers (lower case, sorted).
std::string ossV4CanonicalRequest(const OssSignedRequest& request, const std::vector<std::string>& additionalHeaders);
// nullopt when the request is authentic and timely, whichever version signed it.
std::optional<OssAuthFailure> checkOssSignature(const OssSignedRequest& request, const KeyLookup& lookup,
                                                const OssSignaturePolicy& policy, foundation::SystemTime now);
// The V4 half of the check, for an "Authorization" that starts with "OSS4-HMAC-SHA256 ".
std::optional<OssAuthFailure> checkOssV4Signature(const OssSignedRequest& request, const std::string& authorization,
                                                  const KeyLookup& lookup, const OssSignaturePolicy& policy,
                                                  foundation::SystemTime now);
// A presigned URL's V4 query-string signature (x-oss-signature-version, x-oss-credential, x-oss-date,
// x-oss-expires, x-oss-signature): authentic, not expired, and for this region.
std::optional<OssAuthFailure> checkOssV4PresignedSignature(const OssSignedRequest& request, const KeyLookup& lookup,
                                                           const OssSignaturePolicy& policy, foundation::SystemTime now);

}  // namespace quorvane::emulator
