#pragma once
// Plain records the upload engine and its callers exchange.
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace quorvane {

class VodInfo;

// The engine version, also sent as "av" with every telemetry event.
extern const char* const VODUploadSDKVersion;

// A public type with nothing in it; kept so host code that names it still builds.
class VODUploadModel {};

// Credentials the OSS client signs with. Temporary STS credentials carry a token and an expiry.
struct OSSConfig {
    std::optional<std::string> accessKeyId;
    std::optional<std::string> accessKeySecret;
    std::optional<std::string> secretToken;
    std::optional<std::string> expireTime;
};

// State of one queue entry. Held is never assigned but keeps the numbering fixed.
enum class UploadFileState : int {
    Ready = 0,
    Uploading = 1,
    Canceled = 2,
    Held = 3,
    Success = 4,
    Failure = 5,
};

// State of the client. 3 and 6 are never assigned.
enum class VODClientState : int {
    Idle = 0,
    Started = 1,
    Paused = 2,
    Stopped = 4,
    Finished = 5,
};

// Where an entry goes, taken in one piece.
struct UploadFileAddress {
    std::optional<std::string> endpoint;
    std::optional<std::string> bucket;
    std::optional<std::string> object;
};

// One entry of the client's queue; shared because listFiles hands out the live entries. The state is
// atomic: the engine's worker threads change it while the caller may read or cancel the entry. The
// client fills endpoint, bucket and object of a video-service file on its own queue once the service
// issued the address: another thread reads them through address(), which copies them under the
// entry's lock (listener callbacks run on that queue and may read the fields directly).
struct UploadFileInfo {
    std::string filePath;
    std::optional<std::string> endpoint;
    std::optional<std::string> bucket;
    std::optional<std::string> object;
    std::atomic<UploadFileState> state{UploadFileState::Ready};
    std::shared_ptr<VodInfo> vodInfo;

    UploadFileAddress address() const {
        std::lock_guard lock(addressMutex_);
        return {endpoint, bucket, object};
    }
    // The client's one way to change the address of an entry others may hold.
    void setAddress(UploadFileAddress next) {
        std::lock_guard lock(addressMutex_);
        endpoint = std::move(next.endpoint);
        bucket = std::move(next.bucket);
        object = std::move(next.object);
    }

private:
    mutable std::mutex addressMutex_;
};

// What the finish event carries.
struct VodUploadResult {
    std::optional<std::string> videoId;
    std::optional<std::string> imageUrl;
    std::optional<std::string> bucket;
    std::optional<std::string> endpoint;
};

}  // namespace quorvane
