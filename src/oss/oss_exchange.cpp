// One signed exchange with the service, and its retries: each attempt signs afresh (the date
// changes), a retryable failure waits through the configured scheduler and sends again from the
// body's first byte, and a cancel ends the exchange at once, also while it waits.
#include <algorithm>
#include <cmath>

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
        auto signer = c.currentProvider();
        if (!signer)
            return finish(Out::failure(makeClientError(OSSClientErrorCodeSignFailed, "No credential provider is set")));
        foundation::HttpRequest request;
        request.method = call_.method;
        request.url = buildUrl(*c.endpoint, call_.bucket, call_.objectKey, call_.query);
        request.headers = call_.headers;
        if (auto error = signRequest(call_.method, call_.bucket, call_.objectKey, call_.query, request.headers, *signer,
                                     std::chrono::system_clock::now()))
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
        const auto& conf = context_.client->conf;
        if (!outcome.error || !isRetryableError(*outcome.error) || attempts_ > conf.maxRetryCount ||
            context_.token->isCancelled())
            return finish(std::move(outcome));
        OSSLog::logDebug("Retrying " + what + " after: " + outcome.error->description);
        const auto delay = OSSClientConfiguration::retryDelay(attempts_ - 1);
        if (conf.onRetry)
            conf.onRetry({call_.method, call_.bucket, call_.objectKey, attempts_, conf.maxRetryCount, *outcome.error,
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
    std::shared_ptr<foundation::HttpTask> http_;
    std::shared_ptr<Exchange> keepAlive_;
};

}  // namespace

void OSSClient::Impl::execute(const OSSOperationContext& context, OSSHttpCall call,
                              OSSDone<foundation::HttpResponse> done) {
    std::make_shared<Exchange>(context, std::move(call), std::move(done))->start();
}

}  // namespace quorvane::oss
