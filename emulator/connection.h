#pragma once
// One accepted connection, owned by whoever serves it at the moment: the waiting room while no request
// head is complete, a worker while a request is read and answered. Only one of them touches it at a time.
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>

namespace quorvane::emulator {

struct ConnectionLimits {
    int readTimeoutMs = 20000;       // silence allowed inside a request (its head included)
    int writeTimeoutMs = 20000;      // a client that reads nothing for this long is dropped
    int keepAliveTimeoutMs = 15000;  // silence allowed between requests
    std::size_t keepAliveMax = 100000;
    std::size_t initialWorkers = 32;   // workers serve requests whose head has arrived, not waiting connections
    std::size_t maxWorkers = 1024;
};

// Shared by the server and its connections; stop() sets `stopping` first, then waits for the server.
struct ConnectionControl {
    ConnectionLimits limits;
    std::atomic<bool> stopping{false};
};

class Connection {
public:
    // `ssl` (owned) is set for TLS; its handshake is still to do.
    Connection(ConnectionControl& control, int fd, SSL* ssl);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int fd() const { return fd_; }
    bool open() const { return !dropped_ && !closeAfterAnswer_; }
    bool stopping() const { return control_.stopping.load(); }
    const ConnectionLimits& limits() const { return control_.limits; }
    std::size_t served = 0;  // requests answered on it

    // --- the waiting room's side: the socket is non-blocking while it waits.
    enum class Progress { Ready, WantRead, WantWrite, Closed };
    void setBlocking(bool blocking);
    // Handshakes and reads what has arrived, without blocking: Ready once a whole request head is
    // buffered (or the buffer is full); Closed when the peer left or the connection failed.
    Progress advance();
    std::size_t pending() const { return end_ - begin_; }  // bytes received, not yet read

    // --- a worker's side: blocking calls, bounded by the limits and by a stopping server.
    void drop();  // the close becomes a reset
    void closeAfterAnswer() { closeAfterAnswer_ = true; }
    bool waitReadable(int timeoutMs);
    bool waitWritable(int timeoutMs) { return wait(POLLOUT, timeoutMs); }
    ssize_t read(char* out, std::size_t size);
    ssize_t write(const char* data, std::size_t size);

private:
    std::size_t buffered() const;
    bool headComplete() const;
    bool wait(short events, int timeoutMs);
    ssize_t receive(char* out, std::size_t size);
    void lingeringClose();

    ConnectionControl& control_;
    int fd_;
    SSL* ssl_;
    bool handshaken_ = false;
    char buffer_[16384];
    std::size_t begin_ = 0, end_ = 0;
    bool dropped_ = false;
    bool closeAfterAnswer_ = false;
};

}  // namespace quorvane::emulator
