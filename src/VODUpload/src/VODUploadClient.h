#pragma once
// The upload engine as its users see it: a queue of local files uploaded one at a time into object
// storage as resumable multipart uploads, with credentials from the caller or from the video service.
// Events reach the `VODUploadListener`.
//
// Every operation may be called from any thread and from inside a listener callback; listener callbacks
// run on the client's own serial queue, off the main thread. The engine's steps live behind this class.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VODUpload/src/VODServiceConfig.h"
#include "VODUpload/src/VODUploadListener.h"
#include "VODUpload/src/VODUploadModel.h"
#include "VODUpload/src/VODUploadOptions.h"
#include "VODUpload/src/VodInfo.h"

namespace quorvane {

namespace oss {
enum class OSSSignatureVersion;
}

class VODUploadEngine;

class VODUploadClient {
public:
    // Without a configuration the client talks to the system's own services (VODServiceConfig{}).
    VODUploadClient();
    explicit VODUploadClient(VODServiceConfig config);
    static std::shared_ptr<VODUploadClient> create() { return std::make_shared<VODUploadClient>(); }
    static std::shared_ptr<VODUploadClient> create(VODServiceConfig config) {
        return std::make_shared<VODUploadClient>(std::move(config));
    }
    ~VODUploadClient();
    VODUploadClient(const VODUploadClient&) = delete;
    VODUploadClient& operator=(const VODUploadClient&) = delete;

    // --- Set-up ---
    bool init(std::shared_ptr<VODUploadListener> listener);
    // A plain key pair; refused unless both are non-empty.
    bool init(const std::string& accessKeyId, const std::string& accessKeySecret,
              std::shared_ptr<VODUploadListener> listener);
    // Temporary STS credentials; refused unless all four are non-empty.
    bool init(const std::string& accessKeyId, const std::string& accessKeySecret, const std::string& secretToken,
              const std::string& expireTime, std::shared_ptr<VODUploadListener> listener);
    bool setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret,
                  std::shared_ptr<VODUploadListener> listener);
    bool setKeyId(const std::string& accessKeyId, const std::string& accessKeySecret, const std::string& secretToken,
                  const std::string& expireTime, std::shared_ptr<VODUploadListener> listener);

    // --- Upload auth and address issued by the video service ---
    bool setUploadAuthAndAddress(const std::shared_ptr<UploadFileInfo>& uploadInfo, const std::string& uploadAuth,
                                 const std::string& uploadAddress);

    // --- Recovery after the credentials expired (only while Paused) ---
    bool resumeWithAuth(const std::string& uploadAuth);
    bool resumeWithToken(const std::string& accessKeyId, const std::string& accessKeySecret,
                         const std::string& secretToken, const std::string& expireTime);

    // --- File queue and run control ---
    // Queues a file that the video service registers first (create-upload); refused for an empty path.
    bool addFile(const std::string& filePath, std::shared_ptr<VodInfo> vodInfo);
    // Queues a file uploaded directly into endpoint/bucket/object with the client's credentials.
    bool addFile(const std::string& filePath, std::string endpoint, std::string bucket, std::string object);
    bool addFile(const std::string& filePath, std::string endpoint, std::string bucket, std::string object,
                 std::shared_ptr<VodInfo> vodInfo);
    bool deleteFile(int index);
    bool clearFiles();
    bool cancelFile(int index);
    bool resumeFile(int index);
    bool start();
    bool stop();
    bool pause();
    bool resume();
    // The queue's entries (the live records; the list itself is a snapshot).
    std::vector<std::shared_ptr<UploadFileInfo>> listFiles() const;

    // Blocks until the client state is anything but Started, or the timeout passed (false then). Once
    // it returns true the engine is done with the queue. Never call it from a listener callback: the
    // engine would wait for itself.
    bool waitUntilSettled(std::chrono::milliseconds timeout) const;

    // --- Properties ---
    VODClientState state() const;
    // All the options at once. The setters below each change one field of this value; none of these
    // calls waits for an upload step.
    VODUploadOptions options() const;
    void setOptions(VODUploadOptions options);
    // Bounds the engine's own retries after network trouble; without it they go on without end.
    std::int32_t maxRetryCount() const;
    void setMaxRetryCount(std::int32_t v);
    double timeoutIntervalForRequest() const;
    // Seconds without a byte moved before a request is given up (and retried as a network error);
    // a request that still moves bytes is never cut. Zero, negative or NaN: the default 30.
    void setTimeoutIntervalForRequest(double seconds);
    // An extra CA bundle (a private or test CA) for the object-storage clients made from now on;
    // the system store stays trusted and verification stays on. Empty: the system store alone.
    void setCaFile(std::string path);
    std::string recordDirectoryPath() const;
    void setRecordDirectoryPath(std::string path);
    bool recordUploadProgress() const;
    void setRecordUploadProgress(bool on);
    std::int32_t uploadPartSize() const;
    void setUploadPartSize(std::int32_t bytes);
    // Off by default. On: a file put straight into a bucket (no video-service registration) that is no
    // larger than uploadPartSize goes up as one PutObject, its CRC-64 checked, instead of an initiation,
    // one part and a completion: two round trips fewer, the same listener calls and events, and no
    // upload id or record left to resume (a pause or a retry sends it again).
    bool singleRequestUpload() const;
    void setSingleRequestUpload(bool on);
    // The part size an upload of a file of `fileSize` bytes uses: uploadPartSize, enlarged so that no
    // file needs more than 4999 parts.
    std::int64_t partSizeFor(std::int64_t fileSize) const;
    std::string region() const;
    void setRegion(std::string region);
    // Signatures of the object-storage requests from the next file on: the version (nullopt: V4 whenever
    // the bucket's region is known, as buckets made since September 2025 require) and the bucket's region
    // (empty: the one the endpoint names, else the upload auth's, else region()).
    void setStorageSignature(std::optional<oss::OSSSignatureVersion> version, std::string storageRegion = {});
    std::optional<std::string> appId() const;
    void setAppId(std::optional<std::string> v);
    std::optional<std::string> workflowId() const;
    void setWorkflowId(std::optional<std::string> v);
    bool reportEnabled() const;
    void setReportEnabled(bool on);
    bool transcode() const;
    void setTranscode(bool on);
    std::int32_t retryNotify() const;
    void setRetryNotify(std::int32_t v);
    std::optional<std::string> requestId() const;
    void setRequestId(std::optional<std::string> v);

    void setLogStore(const std::string& logStore);
    void setVideoId(std::optional<std::string> videoId);
    void setListener(std::shared_ptr<VODUploadListener> listener);
    // The services this client talks to, fixed at creation.
    const VODServiceConfig& serviceConfig() const;

private:
    friend struct VODUploadClientInternals;  // the library's own access to the engine
    std::shared_ptr<VODUploadEngine> engine_;
};

}  // namespace quorvane
