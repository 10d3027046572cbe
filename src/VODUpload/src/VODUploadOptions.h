#pragma once
// What a host tells an upload client about how to upload: one value, read by the client whenever a
// step needs it. Setting a field through the client takes effect from the next step that reads it
// (most from the next file on); reading one never waits for an upload step.
#include <cstdint>
#include <optional>
#include <string>

namespace quorvane {

namespace oss {
enum class OSSSignatureVersion;
}

struct VODUploadOptions {
    // Bounds the engine's own retries after network trouble; the default goes on without end.
    std::int32_t maxRetryCount = 2147483647;
    // Seconds without a byte moved before a request is given up (and retried as a network error).
    double timeoutIntervalForRequest = 30.0;
    // An extra CA bundle for the object-storage clients; the system store stays trusted.
    std::string caFile;
    // Where resumable uploads keep their records; empty: the account's caches directory.
    std::string recordDirectoryPath;
    bool recordUploadProgress = true;
    std::int32_t uploadPartSize = 1048576;
    // Parts of one file in flight at once.
    std::int32_t maxConcurrentParts = 2;
    // A direct upload no larger than a part goes up as one PutObject.
    bool singleRequestUpload = false;
    // The video service's region; an upload auth that names one replaces it.
    std::string region = "cn-shanghai";
    // The object-storage signature version (nullopt: V4 whenever the bucket's region is known) and the
    // bucket's region (empty: the endpoint's, else the upload auth's, else `region`).
    std::optional<oss::OSSSignatureVersion> storageSignatureVersion;
    std::string storageRegion;
    std::optional<std::string> appId;
    std::optional<std::string> workflowId;
    std::optional<std::string> requestId;
    bool reportEnabled = true;
    bool transcode = true;

    // The default timeout for a value that is zero, negative or not finite.
    static double requestTimeoutOrDefault(double seconds);
};

}  // namespace quorvane
