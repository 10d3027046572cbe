#pragma once
// Direct requests of `quorvane upload` to the object storage, outside the upload engine: whether an
// object is stored already (HEAD: size and x-oss-hash-crc64ecma), and the PutObject of an empty file,
// which the engine's multipart upload does not take.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane::app {

struct StoreAccess {
    std::string endpoint, bucket;
    std::string keyId, secret, token, expire;  // token empty for a plain key pair
    std::string caFile;
};

struct StoredObject {
    std::uint64_t size = 0;
    std::optional<std::uint64_t> crc64;
};

// The stored object's size and CRC-64; nullopt when it is not there or cannot be asked about.
std::optional<StoredObject> headObject(const StoreAccess& access, const std::string& key);

// Stores an empty object; "" or the service's error text.
std::string putEmptyObject(const StoreAccess& access, const std::string& key, std::string& code);

}  // namespace quorvane::app
