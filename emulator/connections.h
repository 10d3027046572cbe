#pragma once
// The emulator's HTTP server: cpp-httplib parses and answers requests, on connections this module
// accepts ownership of and serves itself. So a fault can drop exactly the connection its request came
// on, stop() ends idle keep-alive connections at once, and nothing ever acts on a descriptor number
// another thread may have closed and reused. A connection waits for its request head in the waiting
// room (no thread); a worker serves it only from a complete head to its answer, so clients that hold
// connections open (idle keep-alive, half-sent heads) never starve the others.
#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "emulator/connection.h"

namespace quorvane::emulator {

std::unique_ptr<httplib::Server> makePlainServer(ConnectionControl& control);
// The server keeps no reference to `cert` and `key` after construction.
std::unique_ptr<httplib::Server> makeTlsServer(ConnectionControl& control, X509* cert, EVP_PKEY* key);

// Binds `server` (made by the functions above) to host:port for itself alone, no other socket sharing
// the port, with the system's largest listen backlog. `port` 0 picks a free one and is set to it.
// False with `error` saying why ("127.0.0.1:9400 is in use by another program").
bool listenExclusively(httplib::Server& server, const std::string& host, int& port, std::string& error);

// The listen backlog asked for: the system's maximum.
int maxListenBacklog();
// Raises this process's soft limit of open descriptors to its hard limit (each connection holds one).
void raiseOpenFileLimit();

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
