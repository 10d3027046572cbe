#pragma once
// Fire-and-forget delivery of event URLs. Each event's GET is started at once on the HTTP client;
// nothing is queued and nothing is retried. At most `maxInFlight` requests are open at a time: an
// event that finds them all busy is dropped (and counted), so a slow or dead log service can never
// pile up requests or work behind the caller, who pays only for starting one request.
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
    int maxInFlight = 4;       // requests open at once; beyond them events are dropped
    long timeoutSeconds = 20;  // a stalled log service frees its slot after this
    std::shared_ptr<foundation::HttpClient> client;  // nullptr = the process-wide client
};

class AVCVEventTransport {
public:
    explicit AVCVEventTransport(AVCVEventTransportOptions options = {});
    // Requests in flight finish on their own.
    ~AVCVEventTransport();
    AVCVEventTransport(const AVCVEventTransport&) = delete;
    AVCVEventTransport& operator=(const AVCVEventTransport&) = delete;

    // The process-wide transport every manager uses unless given another.
    static std::shared_ptr<AVCVEventTransport> shared();

    // Starts a GET of `url` now; returns false (and counts a drop) when `maxInFlight` requests are
    // already open. Never waits.
    bool send(std::string url);

    std::uint64_t dropped() const;    // events refused because every slot was busy
    std::uint64_t completed() const;  // requests that ended, answered or failed
    std::size_t pending() const;      // requests in flight
    // Waits until no request is in flight; false on timeout.
    bool waitUntilIdle(std::chrono::milliseconds timeout) const;

    struct State;

private:
    std::shared_ptr<State> state_;
    std::shared_ptr<foundation::HttpClient> client_;
};

}  // namespace quorvane
