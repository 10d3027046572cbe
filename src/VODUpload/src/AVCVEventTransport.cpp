#include "VODUpload/src/AVCVEventTransport.h"

#include <condition_variable>
#include <mutex>

#include "foundation/http_client.h"

namespace quorvane {

// Slots and counters. Completions hold this, never the HTTP client: a client released from one of
// its own completions would have to join its own worker.
struct AVCVEventTransport::State {
    AVCVEventTransportOptions options;  // `client` stays empty here; the transport holds it
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    int inFlight = 0;
    std::uint64_t dropped = 0;
    std::uint64_t completed = 0;

    void finishOne() {
        std::lock_guard lock(mutex);
        --inFlight;
        ++completed;
        changed.notify_all();
    }
};

AVCVEventTransport::AVCVEventTransport(AVCVEventTransportOptions options)
    : state_(std::make_shared<State>()), client_(options.client ? options.client : foundation::HttpClient::shared()) {
    if (options.maxInFlight < 1) options.maxInFlight = 1;
    options.client = nullptr;
    state_->options = std::move(options);
}

AVCVEventTransport::~AVCVEventTransport() = default;

std::shared_ptr<AVCVEventTransport> AVCVEventTransport::shared() {
    static const auto transport = std::make_shared<AVCVEventTransport>();
    return transport;
}

bool AVCVEventTransport::send(std::string url) {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->inFlight >= state_->options.maxInFlight) {
            ++state_->dropped;
            return false;
        }
        ++state_->inFlight;
    }
    foundation::HttpRequest request;
    request.url = std::move(url);
    request.timeoutSeconds = state_->options.timeoutSeconds;
    request.connectTimeoutSeconds = state_->options.timeoutSeconds;
    // Started outside the lock: a completion that comes at once takes the lock itself.
    client_->send(std::move(request), [state = state_](foundation::HttpResult) { state->finishOne(); });
    return true;
}

std::uint64_t AVCVEventTransport::dropped() const {
    std::lock_guard lock(state_->mutex);
    return state_->dropped;
}

std::uint64_t AVCVEventTransport::completed() const {
    std::lock_guard lock(state_->mutex);
    return state_->completed;
}

std::size_t AVCVEventTransport::pending() const {
    std::lock_guard lock(state_->mutex);
    return static_cast<std::size_t>(state_->inFlight);
}

bool AVCVEventTransport::waitUntilIdle(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, timeout, [this] { return state_->inFlight == 0; });
}

}  // namespace quorvane
