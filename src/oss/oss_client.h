#pragma once
// The object-storage client: signed requests to one endpoint, each operation asynchronous. No
// operation holds a thread while it waits for the network: its steps, completion and continuations
// run on a serial queue of its own over the shared worker pool. Destroying the client cancels what
// is still running (an interrupted resumable upload keeps its checkpoint) and waits for it.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/http_client.h"
#include "oss/credential_provider.h"
#include "oss/oss_object_requests.h"
#include "oss/oss_requests.h"
#include "oss/oss_task.h"

namespace quorvane::oss {

enum class OSSSignatureVersion { V1, V4 };

// One request about to be sent again after a failure.
struct OSSRetryNotice {
    std::string method, bucket, objectKey;
    std::uint32_t retry = 0;  // 1 for the first time the request is sent again
    std::uint32_t limit = 0;  // maxRetryCount
    Error error;              // why
    std::chrono::milliseconds delay{0};  // the wait before it goes
};

struct OSSClientConfiguration {
    // Attempts after the first on a network error or a 5xx answer (the body is sent again from
    // its first byte), retryDelay(n) apart.
    std::uint32_t maxRetryCount = 2;
    // Waits between attempts: calls `resume` once, `delay` later, on any thread. Null = waitOnTimer.
    // Tests put in one that records the delays, or resumes at once.
    std::function<void(std::chrono::milliseconds delay, std::function<void()> resume)> retryScheduler;
    // Told of each retry before its wait, so that a host can show it. Optional; runs on the
    // operation's queue, so it should only hand the notice on.
    std::function<void(const OSSRetryNotice&)> onRetry;
    // Idle time-out of a request, in seconds: it fails once no byte has moved for this long, however
    // large its body (a slow link that still moves bytes is never cut). Zero, negative or NaN: 30.
    double timeoutIntervalForRequest = 30.0;
    // Parts of a resumable upload in flight at once. Two keeps the link busy across each part's
    // request/answer gap; measured on loopback (bench/oss_upload_bench.sh), three or four were
    // slower on a 2-core machine, where extra parts only compete for the CPU.
    int maxConcurrentParts = 2;
    // TLS: verification on by default; an extra CA bundle for a test CA.
    bool verifyTls = true;
    std::string caFile;
    // Bucket addressing: "<bucket>.<host>" unless the host is an IP literal or "localhost", which
    // get "/<bucket>/<key>" paths. Set to force path style for any host.
    bool pathStyleAccess = false;
    // The HTTP client to use; null = the process-wide one.
    std::shared_ptr<foundation::HttpClient> httpClient;
    // The bucket's region ("cn-hangzhou"), signed into V4 requests. Empty: taken from the endpoint's host
    // when it is one of the service's own ("oss-cn-hangzhou.aliyuncs.com").
    std::string region;
    // nullopt: V4 whenever the region is known and the provider hands out its secret, else V1. V4 asked
    // for without a known region makes every operation fail at once, before anything is sent.
    std::optional<OSSSignatureVersion> signatureVersion;
    // V4: optional headers that are signed too when a request has them ("host", "content-length", ...).
    std::vector<std::string> additionalSignedHeaders;
    // How far the service's clock is ahead of ours; requests are signed with our time plus this. The
    // client learns it by itself from a RequestTimeTooSkewed answer (see OSSClient::clockOffset).
    std::chrono::milliseconds clockOffset{0};

    // The wait before retry `retry` (0 for the first): 200 ms, doubling, at most 2 s.
    static std::chrono::milliseconds retryDelay(std::uint32_t retry);
    // The default scheduler: a timer of the shared worker pool.
    static void waitOnTimer(std::chrono::milliseconds delay, std::function<void()> resume);
};

class OSSClient {
public:
    // `endpoint` as a server gives it: "oss-cn-hangzhou.aliyuncs.com", "https://host",
    // "http://127.0.0.1:9000". Without a scheme, https is used. An endpoint without a host makes
    // every operation fail with OSSClientErrorCodeInvalidArgument.
    OSSClient(const std::string& endpoint, std::shared_ptr<OSSCredentialProvider> credentialProvider,
              OSSClientConfiguration clientConfiguration = {});
    ~OSSClient();
    OSSClient(const OSSClient&) = delete;
    OSSClient& operator=(const OSSClient&) = delete;

    // Replaces the provider; requests started afterwards use the new one.
    void setCredentialProvider(std::shared_ptr<OSSCredentialProvider> provider);
    std::shared_ptr<OSSCredentialProvider> credentialProvider() const;
    const OSSClientConfiguration& clientConfiguration() const;
    // Whether the endpoint parsed into a usable host.
    bool isValid() const;
    // The signature the next request gets with the current provider, and the region it names (empty
    // when none is known).
    OSSSignatureVersion signatureVersion() const;
    const std::string& region() const;
    // The correction of our clock learnt so far (the configuration's, or the last one a RequestTimeTooSkewed
    // answer taught): a client made later for the same service can start from it.
    std::chrono::milliseconds clockOffset() const;

    OSSTask<OSSPutObjectResult>::Ptr putObject(std::shared_ptr<OSSPutObjectRequest> request);
    OSSTask<OSSInitMultipartUploadResult>::Ptr multipartUploadInit(std::shared_ptr<OSSInitMultipartUploadRequest> request);
    OSSTask<OSSUploadPartResult>::Ptr uploadPart(std::shared_ptr<OSSUploadPartRequest> request);
    OSSTask<OSSListPartsResult>::Ptr listParts(std::shared_ptr<OSSListPartsRequest> request);
    OSSTask<OSSCompleteMultipartUploadResult>::Ptr completeMultipartUpload(
        std::shared_ptr<OSSCompleteMultipartUploadRequest> request);
    OSSTask<OSSAbortMultipartUploadResult>::Ptr abortMultipartUpload(
        std::shared_ptr<OSSAbortMultipartUploadRequest> request);
    OSSTask<OSSHeadObjectResult>::Ptr headObject(std::shared_ptr<OSSHeadObjectRequest> request);
    OSSTask<OSSResumableUploadResult>::Ptr resumableUpload(std::shared_ptr<OSSResumableUploadRequest> request);
    OSSTask<OSSGetObjectResult>::Ptr getObject(std::shared_ptr<OSSGetObjectRequest> request);
    // One page each: follow isTruncated with the next markers.
    OSSTask<OSSListObjectsResult>::Ptr listObjects(std::shared_ptr<OSSListObjectsRequest> request);
    OSSTask<OSSListMultipartUploadsResult>::Ptr listMultipartUploads(
        std::shared_ptr<OSSListMultipartUploadsRequest> request);
    OSSTask<OSSDeleteObjectResult>::Ptr deleteObject(std::shared_ptr<OSSDeleteObjectRequest> request);
    OSSTask<OSSDeleteMultipleObjectsResult>::Ptr deleteMultipleObjects(
        std::shared_ptr<OSSDeleteMultipleObjectsRequest> request);
    // A V4 presigned URL (query-string signature) made with the current provider and the client's
    // clock; nothing is sent. nullopt with *error set when it cannot be signed (no region, a provider
    // without its secret, an expiry outside 1 s .. 7 days).
    std::optional<std::string> presignObjectURL(const OSSPresignRequest& request, Error* error) const;

    struct Impl;
private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace quorvane::oss
