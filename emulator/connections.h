#pragma once
// The emulator's HTTP server: cpp-httplib parses and answers requests, on connections this module
// accepts ownership of and serves itself. So a fault can drop exactly the connection its request came
// on, stop() ends idle keep-alive connections at once, and nothing ever acts on a descriptor number
// another thread may have closed and reused. Workers grow with the connections, so clients that hold
// connections open (idle keep-alive, half-sent requests) never starve the others.
#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace quorvane::emulator {

struct ConnectionLimits {
    int readTimeoutMs = 20000;       // silence allowed inside a request
    int writeTimeoutMs = 20000;      // a client that reads nothing for this long is dropped
    int keepAliveTimeoutMs = 15000;  // silence allowed between requests
    std::size_t keepAliveMax = 100000;
};

// Shared by the server and its connections; stop() sets `stopping` first, then waits for the server.
struct ConnectionControl {
    ConnectionLimits limits;
    std::atomic<bool> stopping{false};
};

std::unique_ptr<httplib::Server> makePlainServer(ConnectionControl& control);
// The server keeps no reference to `cert` and `key` after construction.
std::unique_ptr<httplib::Server> makeTlsServer(ConnectionControl& control, X509* cert, EVP_PKEY* key);

// Answers one request read from `request` and returns what a connection would have been sent;
// empty unless `server` was made by makePlainServer.
std::string answerWithoutConnection(httplib::Server& server, const std::string& request);

// For request handlers, about the connection the calling thread serves (no effect elsewhere).
// Drops it now: no answer reaches the client, which sees a reset.
void dropCurrentConnection();
// Closes it once the answer is written, without reading the rest of the request's body.
void closeCurrentConnectionAfterAnswer();

// A task queue that starts another worker whenever every worker is busy, up to `maxWorkers`.
class ElasticPool : public httplib::TaskQueue {
public:
    ElasticPool(std::size_t initialWorkers, std::size_t maxWorkers);
    ~ElasticPool() override;
    void enqueue(std::function<void()> fn) override;
    void shutdown() override;

private:
    void work();
    void spawnLocked();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;
    std::size_t max_;
    bool shutdown_ = false;
};

}  // namespace quorvane::emulator
