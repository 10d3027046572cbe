#pragma once
// Inside of OSSClient: the endpoint, the provider, the request executor (signing, time-outs,
// retries, cancellation) and the worker threads that run operations. Not a public header.
#include <atomic>
#include <list>
#include <mutex>
#include <thread>

#include "oss/oss_client.h"
#include "oss/oss_endpoint.h"

namespace quorvane::oss {

// One signed HTTP exchange, as the executor sends it.
struct OSSHttpCall {
    std::string method = "GET";
    std::string bucket;
    std::string objectKey;
    OSSQuery query;
    foundation::Headers headers;                 // without Date/Authorization: added per attempt
    std::shared_ptr<foundation::BodySource> body; // rewound before every retry
    std::function<void(std::uint64_t sent, std::uint64_t total)> onUploadProgress;
};

// A result or an error.
template <class T>
struct OSSOutcome {
    std::shared_ptr<T> result;
    std::optional<Error> error;
    static OSSOutcome failure(Error e) { return OSSOutcome{nullptr, std::move(e)}; }
};

// Fills the fields every result shares from an answer.
void fillResult(OSSResult& result, const foundation::HttpResponse& response);
std::optional<std::uint64_t> parseCrcHeader(const foundation::HttpResponse& response);

struct OSSClient::Impl : std::enable_shared_from_this<OSSClient::Impl> {
    OSSClientConfiguration conf;
    std::optional<OSSEndpoint> endpoint;
    std::string endpointError;
    std::shared_ptr<foundation::HttpClient> http;

    mutable std::mutex providerMutex;
    std::shared_ptr<OSSCredentialProvider> provider;

    std::atomic<bool> shuttingDown{false};

    std::shared_ptr<OSSCredentialProvider> currentProvider() const;

    // Sends the call (blocking) with up to conf.maxRetryCount retries on retryable errors; an HTTP
    // status >= 300 becomes a server error.
    OSSOutcome<foundation::HttpResponse> execute(OSSHttpCall call, OSSCancellationToken& token);
    // One attempt, no retry.
    OSSOutcome<foundation::HttpResponse> sendOnce(const OSSHttpCall& call, OSSCancellationToken& token);

    // Runs `work` on a new worker thread and completes the task with its outcome.
    template <class T>
    typename OSSTask<T>::Ptr run(std::shared_ptr<OSSCancellationToken> token,
                                 std::function<OSSOutcome<T>(OSSCancellationToken&)> work) {
        auto task = OSSTask<T>::create();
        auto body = [task, token, work = std::move(work)] {
            auto outcome = work(*token);
            if (outcome.error) task->setError(std::move(*outcome.error));
            else task->setResult(std::move(outcome.result));
        };
        startWorker(std::move(token), std::move(body));
        return task;
    }

    void startWorker(std::shared_ptr<OSSCancellationToken> token, std::function<void()> body);
    // Cancels every running operation and waits for them (but the calling worker itself).
    void shutdown();
    ~Impl();

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<OSSCancellationToken> token;
        std::shared_ptr<std::atomic<bool>> done;
    };
    std::mutex workersMutex;
    std::list<Worker> workers;
    void reapFinishedLocked();
};

// Blocking operations, shared by the public asynchronous calls and the resumable upload.
OSSOutcome<OSSInitMultipartUploadResult> doInitMultipart(OSSClient::Impl& c, const OSSInitMultipartUploadRequest& r,
                                                          OSSCancellationToken& token);
OSSOutcome<OSSUploadPartResult> doUploadPart(OSSClient::Impl& c, const OSSUploadPartRequest& r,
                                             OSSCancellationToken& token);
OSSOutcome<OSSListPartsResult> doListParts(OSSClient::Impl& c, const OSSListPartsRequest& r,
                                           OSSCancellationToken& token);
OSSOutcome<OSSCompleteMultipartUploadResult> doComplete(OSSClient::Impl& c, const OSSCompleteMultipartUploadRequest& r,
                                                        OSSCancellationToken& token);
OSSOutcome<OSSAbortMultipartUploadResult> doAbort(OSSClient::Impl& c, const OSSAbortMultipartUploadRequest& r,
                                                  OSSCancellationToken& token);
OSSOutcome<OSSHeadObjectResult> doHeadObject(OSSClient::Impl& c, const OSSHeadObjectRequest& r,
                                             OSSCancellationToken& token);
OSSOutcome<OSSPutObjectResult> doPutObject(OSSClient::Impl& c, const OSSPutObjectRequest& r,
                                           OSSCancellationToken& token);
OSSOutcome<OSSResumableUploadResult> doResumableUpload(OSSClient::Impl& c, const OSSResumableUploadRequest& r,
                                                       OSSCancellationToken& token);

}  // namespace quorvane::oss
