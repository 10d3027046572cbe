#include "oss/oss_client.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <condition_variable>

#include "oss/oss_client_impl.h"
#include "oss/oss_log.h"

namespace quorvane::oss {
namespace {

// The request time-out is an idle time-out: a part on a slow link is never cut while its bytes move,
// and a service that stops answering is noticed after this long whatever the body's size.
long idleSecondsFor(const OSSClientConfiguration& conf) {
    const double seconds = conf.timeoutIntervalForRequest;
    if (!(seconds > 0)) return 30;  // zero, negative or NaN: the default
    return std::max(1L, static_cast<long>(std::ceil(std::min(seconds, 86400.0))));
}

std::chrono::milliseconds retryDelay(std::uint32_t attempt) {
    return std::chrono::milliseconds(std::min<long>(2000, 200L << std::min<std::uint32_t>(attempt, 4)));
}

}  // namespace

void fillResult(OSSResult& result, const foundation::HttpResponse& response) {
    result.httpResponseCode = response.status;
    result.httpResponseHeaderFields = response.headers;
    result.requestId = response.header("x-oss-request-id").value_or("");
    result.remoteCRC64ecma = parseCrcHeader(response);
}

std::optional<std::uint64_t> parseCrcHeader(const foundation::HttpResponse& response) {
    auto text = response.header("x-oss-hash-crc64ecma");
    if (!text) return std::nullopt;
    std::uint64_t value = 0;
    auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (ec != std::errc() || end != text->data() + text->size()) return std::nullopt;
    return value;
}

std::shared_ptr<OSSCredentialProvider> OSSClient::Impl::currentProvider() const {
    std::lock_guard lock(providerMutex);
    return provider;
}

OSSOutcome<foundation::HttpResponse> OSSClient::Impl::sendOnce(const OSSHttpCall& call, OSSCancellationToken& token) {
    using Out = OSSOutcome<foundation::HttpResponse>;
    if (!endpoint) return Out::failure(makeClientError(OSSClientErrorCodeInvalidArgument, endpointError));
    if (token.isCancelled()) return Out::failure(fromTransportError(Error(foundation::kHttpErrorDomain,
                                                                          foundation::kHttpErrorCancelled)));
    auto signer = currentProvider();
    if (!signer) return Out::failure(makeClientError(OSSClientErrorCodeSignFailed, "No credential provider is set"));
    foundation::HttpRequest request;
    request.method = call.method;
    request.url = buildUrl(*endpoint, call.bucket, call.objectKey, call.query);
    request.headers = call.headers;
    if (auto error = signRequest(call.method, call.bucket, call.objectKey, call.query, request.headers, *signer,
                                 std::chrono::system_clock::now()))
        return Out::failure(*error);
    request.body = call.body;
    request.idleTimeoutSeconds = idleSecondsFor(conf);
    request.connectTimeoutSeconds = idleSecondsFor(conf);
    request.verifyTls = conf.verifyTls;
    request.caFile = conf.caFile;
    request.onUploadProgress = call.onUploadProgress;

    struct Wait {
        std::mutex mutex;
        std::condition_variable cv;
        bool done = false;
        foundation::HttpResult result;
    };
    auto wait = std::make_shared<Wait>();
    auto task = http->send(std::move(request), [wait](foundation::HttpResult result) {
        std::lock_guard lock(wait->mutex);
        wait->result = std::move(result);
        wait->done = true;
        wait->cv.notify_all();
    });
    int hook = token.add([task] { task->cancel(); });
    {
        std::unique_lock lock(wait->mutex);
        wait->cv.wait(lock, [&] { return wait->done; });
    }
    token.remove(hook);
    auto& result = wait->result;
    std::string what = call.method + " " + call.bucket + "/" + call.objectKey;
    if (!result.ok()) {
        OSSLog::logDebug(what + " failed: " + result.error->toString());
        return Out::failure(fromTransportError(*result.error));
    }
    OSSLog::logDebug(what + " -> " + std::to_string(result.response.status));
    if (result.response.status >= 300) return Out::failure(makeServerError(result.response));
    return Out{std::make_shared<foundation::HttpResponse>(std::move(result.response)), std::nullopt};
}

OSSOutcome<foundation::HttpResponse> OSSClient::Impl::execute(OSSHttpCall call, OSSCancellationToken& token) {
    for (std::uint32_t attempt = 0;; ++attempt) {
        if (attempt > 0 && call.body && !call.body->rewind())
            return OSSOutcome<foundation::HttpResponse>::failure(
                makeClientError(OSSClientErrorCodeFileCantRead, "Can't send the body again from its start"));
        auto outcome = sendOnce(call, token);
        if (!outcome.error || !isRetryableError(*outcome.error) || attempt >= conf.maxRetryCount) return outcome;
        OSSLog::logDebug("Retrying " + call.method + " " + call.objectKey + " after: " + outcome.error->description);
        if (!token.sleepFor(retryDelay(attempt))) return sendOnce(call, token);  // cancelled: reports code 5
    }
}

void OSSClient::Impl::startWorker(std::shared_ptr<OSSCancellationToken> token, std::function<void()> body) {
    std::lock_guard lock(workersMutex);
    reapFinishedLocked();
    if (shuttingDown) token->cancel();
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([self = shared_from_this(), body = std::move(body), done]() mutable {
        body();
        body = nullptr;  // release what the operation held before the thread is marked done
        done->store(true);
    });
    workers.push_back(Worker{std::move(thread), std::move(token), std::move(done)});
}

void OSSClient::Impl::reapFinishedLocked() {
    for (auto it = workers.begin(); it != workers.end();) {
        if (it->done->load()) {
            if (it->thread.joinable()) it->thread.join();
            it = workers.erase(it);
        } else {
            ++it;
        }
    }
}

void OSSClient::Impl::shutdown() {
    shuttingDown = true;
    std::list<Worker> running;
    {
        std::lock_guard lock(workersMutex);
        running.swap(workers);
    }
    for (auto& w : running) w.token->cancel();
    for (auto& w : running) {
        if (!w.thread.joinable()) continue;
        if (w.thread.get_id() == std::this_thread::get_id()) w.thread.detach();
        else w.thread.join();
    }
}

OSSClient::Impl::~Impl() { shutdown(); }

OSSClient::OSSClient(const std::string& endpoint, std::shared_ptr<OSSCredentialProvider> credentialProvider,
                     OSSClientConfiguration clientConfiguration)
    : impl_(std::make_shared<Impl>()) {
    impl_->conf = std::move(clientConfiguration);
    impl_->endpoint = parseEndpoint(endpoint, impl_->conf.pathStyleAccess, &impl_->endpointError);
    impl_->provider = std::move(credentialProvider);
    impl_->http = impl_->conf.httpClient ? impl_->conf.httpClient : foundation::HttpClient::shared();
    if (impl_->conf.maxConcurrentParts < 1) impl_->conf.maxConcurrentParts = 1;
}

OSSClient::~OSSClient() { impl_->shutdown(); }

void OSSClient::setCredentialProvider(std::shared_ptr<OSSCredentialProvider> provider) {
    std::lock_guard lock(impl_->providerMutex);
    impl_->provider = std::move(provider);
}

std::shared_ptr<OSSCredentialProvider> OSSClient::credentialProvider() const { return impl_->currentProvider(); }
const OSSClientConfiguration& OSSClient::clientConfiguration() const { return impl_->conf; }
bool OSSClient::isValid() const { return impl_->endpoint.has_value(); }

namespace {
// Starts `op` for a request on a worker, or fails at once when there is no request.
template <class Result, class Request, class Op>
typename OSSTask<Result>::Ptr start(const std::shared_ptr<OSSClient::Impl>& impl, std::shared_ptr<Request> request,
                                    Op op) {
    if (!request)
        return OSSTask<Result>::taskWithError(makeClientError(OSSClientErrorCodeInvalidArgument, "No request given"));
    auto token = request->cancellationToken();
    return impl->template run<Result>(token, [impl, request, op](OSSCancellationToken& t) {
        return op(*impl, *request, t);
    });
}
}  // namespace

OSSTask<OSSPutObjectResult>::Ptr OSSClient::putObject(std::shared_ptr<OSSPutObjectRequest> request) {
    return start<OSSPutObjectResult>(impl_, std::move(request), doPutObject);
}
OSSTask<OSSInitMultipartUploadResult>::Ptr OSSClient::multipartUploadInit(
    std::shared_ptr<OSSInitMultipartUploadRequest> request) {
    return start<OSSInitMultipartUploadResult>(impl_, std::move(request), doInitMultipart);
}
OSSTask<OSSUploadPartResult>::Ptr OSSClient::uploadPart(std::shared_ptr<OSSUploadPartRequest> request) {
    return start<OSSUploadPartResult>(impl_, std::move(request), doUploadPart);
}
OSSTask<OSSListPartsResult>::Ptr OSSClient::listParts(std::shared_ptr<OSSListPartsRequest> request) {
    return start<OSSListPartsResult>(impl_, std::move(request), doListParts);
}
OSSTask<OSSCompleteMultipartUploadResult>::Ptr OSSClient::completeMultipartUpload(
    std::shared_ptr<OSSCompleteMultipartUploadRequest> request) {
    return start<OSSCompleteMultipartUploadResult>(impl_, std::move(request), doComplete);
}
OSSTask<OSSAbortMultipartUploadResult>::Ptr OSSClient::abortMultipartUpload(
    std::shared_ptr<OSSAbortMultipartUploadRequest> request) {
    return start<OSSAbortMultipartUploadResult>(impl_, std::move(request), doAbort);
}
OSSTask<OSSHeadObjectResult>::Ptr OSSClient::headObject(std::shared_ptr<OSSHeadObjectRequest> request) {
    return start<OSSHeadObjectResult>(impl_, std::move(request), doHeadObject);
}
OSSTask<OSSResumableUploadResult>::Ptr OSSClient::resumableUpload(std::shared_ptr<OSSResumableUploadRequest> request) {
    return start<OSSResumableUploadResult>(impl_, std::move(request), doResumableUpload);
}

}  // namespace quorvane::oss
