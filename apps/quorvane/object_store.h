#pragma once
// Direct requests of `quorvane upload` to the object storage, outside the upload engine: whether an
// object is stored already, and the PutObject of an empty file, which the engine does not take.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/error.h"
#include "foundation/http_client.h"

namespace quorvane::oss {
class OSSClient;
}

namespace quorvane::app {

struct StoreAccess {
    std::string endpoint, bucket;
    std::string keyId, secret, token, expire;  // token empty for a plain key pair
    std::string caFile;
    std::string region;        // the bucket's, for V4 signatures
    int signatureVersion = 4;  // 4 or 1
    int idleTimeout = 0;       // seconds without a byte moving before a request is given up; 0: the client's
    std::shared_ptr<foundation::HttpClient> http;  // carries the requests (a --bwlimit cap); nullptr: the shared one
};

struct StoredObject {
    std::uint64_t size = 0;
    std::optional<std::uint64_t> crc64;
};

// What the lookup found for one key: the object, or nothing stored; `trouble` when the service could not
// be reached or failed (a time-out, a 5xx), as opposed to answering.
struct StoredObjectAnswer {
    std::optional<StoredObject> stored;
    std::optional<std::string> trouble;
};

// Asks whether objects are stored (HEAD: size and x-oss-hash-crc64ecma) for keys in their order, with
// up to `window` requests in flight on one client, while the uploads go on: each answer is handed to
// `answered` (on a client thread) as it arrives. Each key is asked once: the upload that follows has
// retries of its own. Dropping the last reference cancels what is still asked.
class StoredObjectLookup {
public:
    using Answered = std::function<void(std::size_t keyIndex, const StoredObjectAnswer&)>;
    static std::shared_ptr<StoredObjectLookup> start(const StoreAccess& access, std::vector<std::string> keys,
                                                     std::size_t window, Answered answered);
    ~StoredObjectLookup();

private:
    struct Impl;
    explicit StoredObjectLookup(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<Impl> impl_;
};

// An OSSClient for the access (V1 or V4, STS or a key pair); the client's own retry count unless given.
std::unique_ptr<oss::OSSClient> makeStoreClient(const StoreAccess& access,
                                                std::optional<std::uint32_t> maxRetryCount = std::nullopt);

// The code and message of an operation's error, for events and messages.
struct ErrorText {
    std::string code, message;
};
ErrorText describeError(const Error& error);

// Stores an empty object; "" or the service's error text.
std::string putEmptyObject(const StoreAccess& access, const std::string& key, std::string& code);

}  // namespace quorvane::app
