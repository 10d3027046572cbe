#include "VODUpload/src/AVCVEventTransport.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "foundation/http_client.h"

namespace quorvane {

// Queue and counters. Completions hold this, never the HTTP client: a client released from one
// of its own completions would have to join its own worker.
struct AVCVEventTransport::State {
    AVCVEventTransportOptions options;  // `client` stays empty here; the transport holds it
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::deque<std::string> queue;
    int inFlight = 0;
    bool stopping = false;
    std::uint64_t dropped = 0;
    std::uint64_t completed = 0;
    std::thread sender;

    void run(const std::shared_ptr<State>& self, foundation::HttpClient& client);
    void finishOne();
};

void AVCVEventTransport::State::finishOne() {
    std::lock_guard lock(mutex);
    --inFlight;
    ++completed;
    changed.notify_all();
}

// The sender's loop: waits for a URL and a free slot, then starts the request. Completions hold
// the state, so they may end after the transport itself is gone.
void AVCVEventTransport::State::run(const std::shared_ptr<State>& self, foundation::HttpClient& client) {
    for (;;) {
        std::string url;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return stopping || (!queue.empty() && inFlight < options.maxInFlight); });
            if (stopping) return;
            url = std::move(queue.front());
            queue.pop_front();
            ++inFlight;
        }
        foundation::HttpRequest request;
        request.url = std::move(url);
        request.timeoutSeconds = options.timeoutSeconds;
        request.connectTimeoutSeconds = options.timeoutSeconds;
        client.send(std::move(request), [self](foundation::HttpResult) { self->finishOne(); });
    }
}

AVCVEventTransport::AVCVEventTransport(AVCVEventTransportOptions options)
    : state_(std::make_shared<State>()), client_(options.client ? options.client : foundation::HttpClient::shared()) {
    if (options.maxInFlight < 1) options.maxInFlight = 1;
    options.client = nullptr;
    state_->options = std::move(options);
}

AVCVEventTransport::~AVCVEventTransport() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
        state_->queue.clear();
        state_->changed.notify_all();
    }
    if (state_->sender.joinable()) state_->sender.join();
}

std::shared_ptr<AVCVEventTransport> AVCVEventTransport::shared() {
    static const auto transport = std::make_shared<AVCVEventTransport>();
    return transport;
}

bool AVCVEventTransport::enqueue(std::string url) {
    std::lock_guard lock(state_->mutex);
    if (state_->stopping || state_->queue.size() >= state_->options.queueCapacity) {
        ++state_->dropped;
        return false;
    }
    state_->queue.push_back(std::move(url));
    if (!state_->sender.joinable()) {
        state_->sender = std::thread([state = state_, client = client_] { state->run(state, *client); });
    }
    state_->changed.notify_all();
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
    return state_->queue.size() + static_cast<std::size_t>(state_->inFlight);
}

bool AVCVEventTransport::waitUntilIdle(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, timeout,
                                    [this] { return state_->queue.empty() && state_->inFlight == 0; });
}

}  // namespace quorvane
