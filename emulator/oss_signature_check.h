#pragma once
// Server-side check of OSS V1 header signatures, written from the service's published rules.
#include <functional>
#include <optional>
#include <string>

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

// The canonical text the client should have signed.
std::string ossStringToSign(const OssSignedRequest& request);
// nullopt when the request is authentic and timely.
std::optional<OssAuthFailure> checkOssSignature(const OssSignedRequest& request, const KeyLookup& lookup,
                                                foundation::SystemTime now);

}  // namespace quorvane::emulator
