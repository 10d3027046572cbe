#include "oss/oss_client.h"

#include <algorithm>
#include <charconv>
#include <thread>
#include <vector>

#include "oss/oss_client_impl.h"
#include "oss/oss_error.h"
#include "oss/oss_region.h"
#include "oss/oss_signer_v4.h"

namespace quorvane::oss {

std::chrono::milliseconds OSSClientConfiguration::retryDelay(std::uint32_t retry) {
    return std::chrono::milliseconds(std::min<long>(2000, 200L << std::min<std::uint32_t>(retry, 4)));
}

void OSSClientConfiguration::waitOnTimer(std::chrono::milliseconds delay, std::function<void()> resume) {
    foundation::after(std::chrono::duration<double>(delay).count(), foundation::dispatch::global(), std::move(resume));
}

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

int OSSClient::Impl::track(std::shared_ptr<OSSCancellationToken> token) {
    std::lock_guard lock(runningMutex);
    if (shuttingDown) token->cancel();
    int id = nextOperationId++;
    running.emplace(id, Running{std::move(token), {}});
    return id;
}

void OSSClient::Impl::delivering(int id) {
    std::lock_guard lock(runningMutex);
    if (auto it = running.find(id); it != running.end()) it->second.delivering = std::this_thread::get_id();
}

void OSSClient::Impl::untrack(int id) {
    {
        std::lock_guard lock(runningMutex);
        running.erase(id);
    }
    runningChanged.notify_all();
}

void OSSClient::Impl::shutdown() {
    std::vector<std::shared_ptr<OSSCancellationToken>> cancelling;
    {
        std::lock_guard lock(runningMutex);
        shuttingDown = true;
        // One whose task is being completed has its outcome: cancelling it now would only leave its
        // request marked cancelled for the caller's next use of it.
        for (const auto& [id, op] : running)
            if (op.delivering == std::thread::id()) cancelling.push_back(op.token);
    }
    for (auto& token : cancelling) token->cancel();
    // Cancelled operations end promptly (a cancelled HTTP transfer completes at once) and their tasks
    // are complete when this returns; only a task this very thread is completing (its continuation
    // ends the client) is not waited for.
    const auto self = std::this_thread::get_id();
    std::unique_lock lock(runningMutex);
    runningChanged.wait(lock, [&] {
        return std::all_of(running.begin(), running.end(), [&](const auto& entry) { return entry.second.delivering == self; });
    });
}

OSSClient::Impl::~Impl() { shutdown(); }

std::shared_ptr<const OSSRequestSigner> OSSClient::Impl::signerFor(const OSSCredentialProvider& provider,
                                                                  Error* error) const {
    const auto asked = conf.signatureVersion;
    if (asked == OSSSignatureVersion::V1) return v1Signer;
    if (!asked) return v4Signer && provider.providesSecret() ? v4Signer : v1Signer;
    if (!v4Signer) {
        if (error) *error = makeClientError(OSSClientErrorCodeInvalidArgument, signerError);
        return nullptr;
    }
    return v4Signer;  // a provider without its secret says so when it signs
}

foundation::SystemTime OSSClient::Impl::signingTime() const {
    return std::chrono::system_clock::now() + std::chrono::milliseconds(clockOffsetMs.load());
}

OSSClient::OSSClient(const std::string& endpoint, std::shared_ptr<OSSCredentialProvider> credentialProvider,
                     OSSClientConfiguration clientConfiguration)
    : impl_(std::make_shared<Impl>()) {
    impl_->conf = std::move(clientConfiguration);
    impl_->endpoint = parseEndpoint(endpoint, impl_->conf.pathStyleAccess, &impl_->endpointError);
    impl_->provider = std::move(credentialProvider);
    impl_->http = impl_->conf.httpClient ? impl_->conf.httpClient : foundation::HttpClient::shared();
    if (impl_->conf.maxConcurrentParts < 1) impl_->conf.maxConcurrentParts = 1;
    if (!impl_->conf.retryScheduler) impl_->conf.retryScheduler = OSSClientConfiguration::waitOnTimer;
    impl_->clockOffsetMs = impl_->conf.clockOffset.count();
    impl_->v1Signer = std::make_shared<OSSV1Signer>();
    const auto& region = impl_->conf.region;
    if (!region.empty() && !isValidRegion(region)) {
        impl_->signerError = "The region \"" + region +
                             "\" is not a region id: it may hold only a-z, 0-9 and '-' (for instance cn-hangzhou)";
        // A region given wrong is never silently replaced by V1: every operation fails with this.
        impl_->conf.signatureVersion = OSSSignatureVersion::V4;
        return;
    }
    impl_->region = !region.empty() ? region : regionFromEndpoint(endpoint).value_or("");
    if (!impl_->region.empty())
        impl_->v4Signer = std::make_shared<OSSV4Signer>(impl_->region, impl_->conf.additionalSignedHeaders);
    else
        impl_->signerError = "V4 signatures need the bucket's region, and the endpoint \"" + endpoint +
                             "\" does not name one: set the client configuration's region (for instance cn-hangzhou)";
}

OSSClient::~OSSClient() { impl_->shutdown(); }

void OSSClient::setCredentialProvider(std::shared_ptr<OSSCredentialProvider> provider) {
    std::lock_guard lock(impl_->providerMutex);
    impl_->provider = std::move(provider);
}

std::shared_ptr<OSSCredentialProvider> OSSClient::credentialProvider() const { return impl_->currentProvider(); }
const OSSClientConfiguration& OSSClient::clientConfiguration() const { return impl_->conf; }
bool OSSClient::isValid() const { return impl_->endpoint.has_value(); }

OSSSignatureVersion OSSClient::signatureVersion() const {
    auto provider = impl_->currentProvider();
    if (!provider) return impl_->conf.signatureVersion.value_or(OSSSignatureVersion::V1);
    auto signer = impl_->signerFor(*provider, nullptr);
    return signer && signer == impl_->v4Signer ? OSSSignatureVersion::V4
           : signer                            ? OSSSignatureVersion::V1
                                               : *impl_->conf.signatureVersion;
}

const std::string& OSSClient::region() const { return impl_->region; }

std::chrono::milliseconds OSSClient::clockOffset() const {
    return std::chrono::milliseconds(impl_->clockOffsetMs.load());
}

namespace {

// Starts `op` for a request on a serial queue of its own, or fails at once when there is no request.
// The operation leaves the client's list of running operations once its task is complete.
template <class Result, class Request, class Op>
typename OSSTask<Result>::Ptr start(const std::shared_ptr<OSSClient::Impl>& impl, std::shared_ptr<Request> request,
                                    Op op) {
    if (!request)
        return OSSTask<Result>::taskWithError(makeClientError(OSSClientErrorCodeInvalidArgument, "No request given"));
    auto task = OSSTask<Result>::create();
    OSSOperationContext context{impl, request->cancellationToken(),
                                std::make_shared<foundation::SerialQueue>("com.quorvane.oss.operation")};
    const int id = impl->track(context.token);
    context.queue->async([context, request, op, task, id] {
        op(context, request, [impl = context.client, task, id](OSSOutcome<Result> outcome) {
            impl->delivering(id);
            if (outcome.error) task->setError(std::move(*outcome.error));
            else task->setResult(std::move(outcome.result));
            impl->untrack(id);
        });
    });
    return task;
}

// Adapts an operation that reads its request by reference: the request lives as long as the task.
template <class Result, class Request>
auto byReference(void (*op)(const OSSOperationContext&, const Request&, OSSDone<Result>)) {
    return [op](const OSSOperationContext& context, const std::shared_ptr<Request>& request, OSSDone<Result> done) {
        op(context, *request, [request, done = std::move(done)](OSSOutcome<Result> outcome) { done(std::move(outcome)); });
    };
}

}  // namespace

OSSTask<OSSPutObjectResult>::Ptr OSSClient::putObject(std::shared_ptr<OSSPutObjectRequest> request) {
    return start<OSSPutObjectResult>(impl_, std::move(request), byReference(startPutObject));
}
OSSTask<OSSInitMultipartUploadResult>::Ptr OSSClient::multipartUploadInit(
    std::shared_ptr<OSSInitMultipartUploadRequest> request) {
    return start<OSSInitMultipartUploadResult>(impl_, std::move(request), byReference(startInitMultipart));
}
OSSTask<OSSUploadPartResult>::Ptr OSSClient::uploadPart(std::shared_ptr<OSSUploadPartRequest> request) {
    return start<OSSUploadPartResult>(impl_, std::move(request), byReference(startUploadPart));
}
OSSTask<OSSListPartsResult>::Ptr OSSClient::listParts(std::shared_ptr<OSSListPartsRequest> request) {
    return start<OSSListPartsResult>(impl_, std::move(request), byReference(startListParts));
}
OSSTask<OSSCompleteMultipartUploadResult>::Ptr OSSClient::completeMultipartUpload(
    std::shared_ptr<OSSCompleteMultipartUploadRequest> request) {
    return start<OSSCompleteMultipartUploadResult>(impl_, std::move(request), byReference(startComplete));
}
OSSTask<OSSAbortMultipartUploadResult>::Ptr OSSClient::abortMultipartUpload(
    std::shared_ptr<OSSAbortMultipartUploadRequest> request) {
    return start<OSSAbortMultipartUploadResult>(impl_, std::move(request), byReference(startAbort));
}
OSSTask<OSSHeadObjectResult>::Ptr OSSClient::headObject(std::shared_ptr<OSSHeadObjectRequest> request) {
    return start<OSSHeadObjectResult>(impl_, std::move(request), byReference(startHeadObject));
}
OSSTask<OSSGetObjectResult>::Ptr OSSClient::getObject(std::shared_ptr<OSSGetObjectRequest> request) {
    return start<OSSGetObjectResult>(impl_, std::move(request), byReference(startGetObject));
}
OSSTask<OSSListObjectsResult>::Ptr OSSClient::listObjects(std::shared_ptr<OSSListObjectsRequest> request) {
    return start<OSSListObjectsResult>(impl_, std::move(request), byReference(startListObjects));
}
OSSTask<OSSListMultipartUploadsResult>::Ptr OSSClient::listMultipartUploads(
    std::shared_ptr<OSSListMultipartUploadsRequest> request) {
    return start<OSSListMultipartUploadsResult>(impl_, std::move(request), byReference(startListMultipartUploads));
}
OSSTask<OSSDeleteObjectResult>::Ptr OSSClient::deleteObject(std::shared_ptr<OSSDeleteObjectRequest> request) {
    return start<OSSDeleteObjectResult>(impl_, std::move(request), byReference(startDeleteObject));
}
OSSTask<OSSDeleteMultipleObjectsResult>::Ptr OSSClient::deleteMultipleObjects(
    std::shared_ptr<OSSDeleteMultipleObjectsRequest> request) {
    return start<OSSDeleteMultipleObjectsResult>(impl_, std::move(request), byReference(startDeleteMultipleObjects));
}
OSSTask<OSSResumableUploadResult>::Ptr OSSClient::resumableUpload(std::shared_ptr<OSSResumableUploadRequest> request) {
    return start<OSSResumableUploadResult>(
        impl_, std::move(request),
        [](const OSSOperationContext& context, const std::shared_ptr<OSSResumableUploadRequest>& r,
           OSSDone<OSSResumableUploadResult> done) { startResumableUpload(context, r, std::move(done)); });
}

}  // namespace quorvane::oss
