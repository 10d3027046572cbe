#pragma once
// Bad networks on loopback, for tests that must show nothing waits for ever and nothing slow but
// moving is cut: a service that accepts connections and never answers, and a proxy that forwards
// the client's bytes at a fixed rate.
#include <cstdint>
#include <memory>
#include <string>

namespace quorvane::test {

// Accepts every connection, reads and discards what arrives, never writes a byte.
class SilentServer {
public:
    SilentServer();
    ~SilentServer();
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    std::uint16_t port() const;
    // "http://127.0.0.1:PORT"
    std::string endpoint() const;
    int connectionsAccepted() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Forwards connections to 127.0.0.1:upstreamPort. Bytes from the client go upstream at
// `bytesPerSecond` in small slices (a slow uplink); answers come back at full speed. The client's
// side of each connection has the segment size and receive buffer of a real link, so the client
// sees its bytes acknowledged at the link's pace, not swallowed at once by loopback buffers.
class ThrottledProxy {
public:
    ThrottledProxy(std::uint16_t upstreamPort, std::uint64_t bytesPerSecond);
    ~ThrottledProxy();
    ThrottledProxy(const ThrottledProxy&) = delete;
    ThrottledProxy& operator=(const ThrottledProxy&) = delete;
    std::uint16_t port() const;
    std::string endpoint() const;
    std::uint64_t bytesForwarded() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace quorvane::test
