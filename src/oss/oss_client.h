#pragma once
// The object-storage client: signed requests to one endpoint, each operation asynchronous.
// Completions and continuations run on the client's worker threads. Destroying the client cancels
// what is still running (an interrupted resumable upload keeps its checkpoint) and waits for it.
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/http_client.h"
#include "oss/credential_provider.h"
#include "oss/oss_requests.h"
#include "oss/oss_task.h"

namespace quorvane::oss {

struct OSSClientConfiguration {
    // Attempts after the first on a network error or a 5xx answer (the body is sent again from
    // its first byte).
    std::uint32_t maxRetryCount = 2;
    // Time-out of a request without a body, in seconds. A request with a body also gets the time to
    // send it at a slow floor rate, so large puts are not cut off.
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

    struct Impl;
private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace quorvane::oss
