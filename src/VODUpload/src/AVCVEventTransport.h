#pragma once
// Fire-and-forget delivery of event URLs: the caller only appends to a bounded queue (an event that
// finds it full is dropped and counted), and one sender thread hands the URLs to the HTTP client
// with a small number in flight. No reply is read, nothing is retried, a slow or dead log service
// costs the caller nothing.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace quorvane {

namespace foundation {
class HttpClient;
}

struct AVCVEventTransportOptions {
    std::size_t queueCapacity = 256;  // events waiting for a sending slot
    int maxInFlight = 4;              // requests open at once
    long timeoutSeconds = 20;         // a stalled log service frees its slot after this
    std::shared_ptr<foundation::HttpClient> client;  // nullptr = the process-wide client
};

class AVCVEventTransport {
public:
    explicit AVCVEventTransport(AVCVEventTransportOptions options = {});
    // Stops the sender; events still queued are dropped, requests in flight finish on their own.
    ~AVCVEventTransport();
    AVCVEventTransport(const AVCVEventTransport&) = delete;
    AVCVEventTransport& operator=(const AVCVEventTransport&) = delete;

    // The process-wide transport every manager uses unless given another.
    static std::shared_ptr<AVCVEventTransport> shared();

    // Queues a GET of `url`; returns false (and counts a drop) when the queue is full. Never waits.
    bool enqueue(std::string url);

    std::uint64_t dropped() const;    // events refused because the queue was full
    std::uint64_t completed() const;  // requests that ended, answered or failed
    std::size_t pending() const;      // queued plus in flight
    // Waits until nothing is queued or in flight; false on timeout.
    bool waitUntilIdle(std::chrono::milliseconds timeout) const;

    struct State;

private:
    std::shared_ptr<State> state_;
    std::shared_ptr<foundation::HttpClient> client_;
};

}  // namespace quorvane
