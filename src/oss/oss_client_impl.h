#pragma once
// Inside of OSSClient: the endpoint, the provider, the signed exchange with its retries, and the
// operations in flight. Not a public header.
//
// Nothing here blocks a thread on the network. An operation runs as a chain of steps on its own
// serial queue: each HTTP answer is posted to that queue, a retry waits on a timer, and the next
// step starts from the completion of the previous one. The queue is the only thing that touches
// an operation's state, so that state needs no lock.
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "foundation/dispatch.h"
#include "oss/oss_client.h"
#include "oss/oss_endpoint.h"

namespace quorvane::oss {

// One signed HTTP exchange, as the client sends it.
struct OSSHttpCall {
    std::string method = "GET";
    std::string bucket;
    std::string objectKey;
    OSSQuery query;
    foundation::Headers headers;                 // without Date/Authorization: added per attempt
    std::shared_ptr<foundation::BodySource> body; // rewound before every retry
    std::function<void(std::uint64_t sent, std::uint64_t total)> onUploadProgress;  // on an HTTP thread
};

// A result or an error.
template <class T>
struct OSSOutcome {
    std::shared_ptr<T> result;
    std::optional<Error> error;
    static OSSOutcome failure(Error e) { return OSSOutcome{nullptr, std::move(e)}; }
};

template <class T>
using OSSDone = std::function<void(OSSOutcome<T>)>;

// Fills the fields every result shares from an answer.
void fillResult(OSSResult& result, const foundation::HttpResponse& response);
std::optional<std::uint64_t> parseCrcHeader(const foundation::HttpResponse& response);

// What an operation runs with: its client, its cancellation, and the serial queue all its steps and
// completions run on.
struct OSSOperationContext {
    std::shared_ptr<OSSClient::Impl> client;
    std::shared_ptr<OSSCancellationToken> token;
    std::shared_ptr<foundation::SerialQueue> queue;
};

struct OSSClient::Impl : std::enable_shared_from_this<OSSClient::Impl> {
    OSSClientConfiguration conf;
    std::optional<OSSEndpoint> endpoint;
    std::string endpointError;
    std::shared_ptr<foundation::HttpClient> http;

    mutable std::mutex providerMutex;
    std::shared_ptr<OSSCredentialProvider> provider;

    // Signing: the region (configured, or from the endpoint's host), the V4 signer when there is one, and
    // why V4 cannot be used when it was asked for and there is none.
    std::string region;
    std::shared_ptr<const OSSRequestSigner> v1Signer;
    std::shared_ptr<const OSSRequestSigner> v4Signer;
    std::string signerError;
    std::atomic<std::int64_t> clockOffsetMs{0};

    // The signer for a request made with `provider`; null with *error set when none can sign it.
    std::shared_ptr<const OSSRequestSigner> signerFor(const OSSCredentialProvider& provider, Error* error) const;
    foundation::SystemTime signingTime() const;

    std::atomic<bool> shuttingDown{false};

    std::shared_ptr<OSSCredentialProvider> currentProvider() const;

    // Sends the call with up to conf.maxRetryCount retries on retryable errors, waiting between
    // attempts through conf.retryScheduler; an HTTP status >= 300 becomes a server error. `done` runs
    // once, on the context's queue.
    void execute(const OSSOperationContext& context, OSSHttpCall call, OSSDone<foundation::HttpResponse> done);

    // Running operations: the end of the client cancels them and waits for their completions.
    int track(std::shared_ptr<OSSCancellationToken> token);
    // Around the completion of an operation's task: its continuations may end the client, which then
    // waits for every operation but the ones this thread is completing.
    void delivering(int id);
    void untrack(int id);
    void shutdown();
    ~Impl();

private:
    std::mutex runningMutex;
    std::condition_variable runningChanged;
    struct Running {
        std::shared_ptr<OSSCancellationToken> token;
        std::thread::id delivering;  // the thread completing its task, once it does
    };
    std::map<int, Running> running;
    int nextOperationId = 1;
};

// The operations, each as steps on the context's queue; `done` runs once, on that queue.
void startPutObject(const OSSOperationContext& context, const OSSPutObjectRequest& request,
                    OSSDone<OSSPutObjectResult> done);
void startInitMultipart(const OSSOperationContext& context, const OSSInitMultipartUploadRequest& request,
                        OSSDone<OSSInitMultipartUploadResult> done);
void startUploadPart(const OSSOperationContext& context, const OSSUploadPartRequest& request,
                     OSSDone<OSSUploadPartResult> done);
void startListParts(const OSSOperationContext& context, const OSSListPartsRequest& request,
                    OSSDone<OSSListPartsResult> done);
void startComplete(const OSSOperationContext& context, const OSSCompleteMultipartUploadRequest& request,
                   OSSDone<OSSCompleteMultipartUploadResult> done);
void startAbort(const OSSOperationContext& context, const OSSAbortMultipartUploadRequest& request,
                OSSDone<OSSAbortMultipartUploadResult> done);
void startHeadObject(const OSSOperationContext& context, const OSSHeadObjectRequest& request,
                     OSSDone<OSSHeadObjectResult> done);
void startGetObject(const OSSOperationContext& context, const OSSGetObjectRequest& request,
                    OSSDone<OSSGetObjectResult> done);
void startListObjects(const OSSOperationContext& context, const OSSListObjectsRequest& request,
                      OSSDone<OSSListObjectsResult> done);
void startListMultipartUploads(const OSSOperationContext& context, const OSSListMultipartUploadsRequest& request,
                               OSSDone<OSSListMultipartUploadsResult> done);
void startDeleteObject(const OSSOperationContext& context, const OSSDeleteObjectRequest& request,
                       OSSDone<OSSDeleteObjectResult> done);
void startDeleteMultipleObjects(const OSSOperationContext& context, const OSSDeleteMultipleObjectsRequest& request,
                                OSSDone<OSSDeleteMultipleObjectsResult> done);
void startResumableUpload(const OSSOperationContext& context, std::shared_ptr<const OSSResumableUploadRequest> request,
                          OSSDone<OSSResumableUploadResult> done);

}  // namespace quorvane::oss
