#pragma once
// Direct requests of `quorvane upload` to the object storage, outside the upload engine: whether an
// object is stored already (HEAD: size and x-oss-hash-crc64ecma), and the PutObject of an empty file,
// which the engine's multipart upload does not take.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::app {

struct StoreAccess {
    std::string endpoint, bucket;
    std::string keyId, secret, token, expire;  // token empty for a plain key pair
    std::string caFile;
    std::string region;        // the bucket's, for V4 signatures
    int signatureVersion = 4;  // 4 or 1
};

struct StoredObject {
    std::uint64_t size = 0;
    std::optional<std::uint64_t> crc64;
};

// Each stored object's size and CRC-64, in the keys' order; nullopt where it is not there or cannot be
// asked about. Up to `inFlight` requests at once.
std::vector<std::optional<StoredObject>> headObjects(const StoreAccess& access, const std::vector<std::string>& keys,
                                                     std::size_t inFlight);

// Stores an empty object; "" or the service's error text.
std::string putEmptyObject(const StoreAccess& access, const std::string& key, std::string& code);

}  // namespace quorvane::app
