// One signed exchange with the service, and its retries: each attempt signs afresh (the date
// changes), a retryable failure waits through the configured scheduler and sends again from the
// body's first byte, and a cancel ends the exchange at once, also while it waits. An answer that our
// clock is off (RequestTimeTooSkewed) teaches the client the service's time and is signed again
// once, at once: that is not a failure of the network and costs none of its retries.
#include <algorithm>
#include <cmath>

#include "foundation/dates.h"
#include "oss/oss_client_impl.h"
#include "oss/oss_header_text.h"
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

bool signsHost(const OSSClientConfiguration& conf) {
    return std::any_of(conf.additionalSignedHeaders.begin(), conf.additionalSignedHeaders.end(),
                       [](const std::string& name) { return lowerAscii(trimBlanks(name)) == "host"; });
}

// The Host header libcurl would send for the URL, written out so that it can be signed.
std::string hostOf(const OSSEndpoint& endpoint, const std::string& bucket) {
    return bucket.empty() || endpoint.pathStyle ? endpoint.hostPort : bucket + "." + endpoint.hostPort;
}

class Exchange : public std::enable_shared_from_this<Exchange> {
public:
    Exchange(OSSOperationContext context, OSSHttpCall call, OSSDone<foundation::HttpResponse> done)
        : context_(std::move(context)), call_(std::move(call)), done_(std::move(done)) {}

    void start() {
        // The hook may run on any thread: it only posts, and the queue decides.
        cancelHook_ = context_.token->add([weak = weak_from_this(), queue = context_.queue] {
            queue->async([weak] {
                if (auto self = weak.lock()) self->onCancel();
            });
        });
        attempt();
    }

private:
    using Out = OSSOutcome<foundation::HttpResponse>;

    void attempt() {
        if (finished_) return;
        auto& c = *context_.client;
        if (!c.endpoint) return finish(Out::failure(makeClientError(OSSClientErrorCodeInvalidArgument, c.endpointError)));
        if (context_.token->isCancelled()) return finish(Out::failure(makeCancelledError()));
        if (attempts_ > 0 && call_.body && !call_.body->rewind())
            return finish(Out::failure(
                makeClientError(OSSClientErrorCodeFileCantRead, "Can't send the body again from its start")));
        auto provider = c.currentProvider();
        if (!provider)
            return finish(Out::failure(makeClientError(OSSClientErrorCodeSignFailed, "No credential provider is set")));
        Error signerError;
        auto signer = c.signerFor(*provider, &signerError);
        if (!signer) return finish(Out::failure(signerError));
        foundation::HttpRequest request;
        request.method = call_.method;
        request.url = buildUrl(*c.endpoint, call_.bucket, call_.objectKey, call_.query);
        request.headers = call_.headers;
        if (signsHost(c.conf)) request.headers.emplace_back("Host", hostOf(*c.endpoint, call_.bucket));
        if (auto error = signer->sign(call_.method, call_.bucket, call_.objectKey, call_.query, request.headers,
                                      *provider, c.signingTime()))
            return finish(Out::failure(*error));
        request.body = call_.body;
        request.idleTimeoutSeconds = idleSecondsFor(c.conf);
        request.connectTimeoutSeconds = idleSecondsFor(c.conf);
        request.verifyTls = c.conf.verifyTls;
        request.caFile = c.conf.caFile;
        request.onUploadProgress = call_.onUploadProgress;
        ++attempts_;
        http_ = c.http->send(std::move(request), [self = shared_from_this()](foundation::HttpResult result) {
            self->context_.queue->async([self, result = std::move(result)]() mutable { self->onAnswer(std::move(result)); });
        });
    }

    void onAnswer(foundation::HttpResult result) {
        http_.reset();
        if (finished_) return;
        const std::string what = call_.method + " " + call_.bucket + "/" + call_.objectKey;
        Out outcome;
        if (!result.ok()) {
            OSSLog::logDebug(what + " failed: " + result.error->toString());
            outcome = Out::failure(fromTransportError(*result.error));
        } else {
            OSSLog::logDebug(what + " -> " + std::to_string(result.response.status));
            if (result.response.status >= 300) outcome = Out::failure(makeServerError(result.response));
            else outcome.result = std::make_shared<foundation::HttpResponse>(std::move(result.response));
        }
        if (outcome.error && !skewCorrected_ && !context_.token->isCancelled() && learnClock(*outcome.error, result)) {
            skewCorrected_ = true;
            OSSLog::logDebug("Signing " + what + " again with the service's clock");
            return attempt();
        }
        const auto& conf = context_.client->conf;
        const std::uint32_t retriesUsed = attempts_ - (skewCorrected_ ? 1 : 0);
        if (!outcome.error || !isRetryableError(*outcome.error) || retriesUsed > conf.maxRetryCount ||
            context_.token->isCancelled())
            return finish(std::move(outcome));
        OSSLog::logDebug("Retrying " + what + " after: " + outcome.error->description);
        const auto delay = OSSClientConfiguration::retryDelay(retriesUsed - 1);
        if (conf.onRetry)
            conf.onRetry({call_.method, call_.bucket, call_.objectKey, retriesUsed, conf.maxRetryCount, *outcome.error,
                          delay});
        waiting_ = true;
        conf.retryScheduler(delay, [weak = weak_from_this(), queue = context_.queue] {
            queue->async([weak] {
                auto self = weak.lock();
                if (!self || self->finished_) return;
                self->waiting_ = false;
                self->attempt();
            });
        });
        // The scheduler's pending task holds the exchange only weakly: keep it alive until it fires
        // or a cancel ends the wait.
        keepAlive_ = shared_from_this();
    }

    // On RequestTimeTooSkewed: the offset between the service's time (its error document's ServerTime,
    // else the answer's Date: a HEAD answer has no body) and ours, kept on the client for every later
    // request. False when the answer is another error or carries no usable time.
    bool learnClock(const Error& error, const foundation::HttpResult& result) {
        if (error.domain != kOSSServerErrorDomain || error.code != -403) return false;
        const auto code = foundation::stringAt(error.userInfo, "Code");
        std::optional<foundation::SystemTime> serverTime;
        if (code) {
            if (*code != "RequestTimeTooSkewed") return false;
            if (auto text = foundation::stringAt(error.userInfo, "ServerTime"))
                serverTime = foundation::parseIso8601Utc(*text);
        }
        if (!serverTime)
            if (auto date = result.response.header("Date")) serverTime = foundation::parseRfc1123(*date);
        if (!serverTime) return false;
        const auto offset =
            std::chrono::duration_cast<std::chrono::milliseconds>(*serverTime - std::chrono::system_clock::now());
        // A HEAD refused without a body does not say why: its Date counts only when it is far off ours.
        if (!code && std::chrono::abs(offset) < std::chrono::minutes(15)) return false;
        context_.client->clockOffsetMs = offset.count();
        return true;
    }

    void onCancel() {
        if (finished_) return;
        if (http_) http_->cancel();  // its answer (cancelled) ends the exchange
        else if (waiting_) finish(Out::failure(makeCancelledError()));
    }

    void finish(Out outcome) {
        if (finished_) return;
        finished_ = true;
        context_.token->remove(cancelHook_);
        auto done = std::move(done_);
        auto self = std::move(keepAlive_);  // released when this returns
        done(std::move(outcome));
    }

    OSSOperationContext context_;
    OSSHttpCall call_;
    OSSDone<foundation::HttpResponse> done_;
    int cancelHook_ = 0;
    std::uint32_t attempts_ = 0;
    bool finished_ = false;
    bool waiting_ = false;
    bool skewCorrected_ = false;
    std::shared_ptr<foundation::HttpTask> http_;
    std::shared_ptr<Exchange> keepAlive_;
};

}  // namespace

void OSSClient::Impl::execute(const OSSOperationContext& context, OSSHttpCall call,
                              OSSDone<foundation::HttpResponse> done) {
    std::make_shared<Exchange>(context, std::move(call), std::move(done))->start();
}

}  // namespace quorvane::oss
