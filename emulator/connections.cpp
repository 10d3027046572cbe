#include "emulator/connections.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace quorvane::emulator {
namespace {

// One accepted connection, owned by the worker that serves it from accept to close.
class Connection {
public:
    Connection(ConnectionControl& control, int fd, SSL* ssl) : control_(control), fd_(fd), ssl_(ssl) {}
    ~Connection() {
        if (ssl_) {
            if (!dropped_) SSL_shutdown(ssl_);
            SSL_free(ssl_);
        }
        if (closeAfterAnswer_ && !dropped_ && !ssl_) lingeringClose();
        ::close(fd_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int fd() const { return fd_; }
    bool open() const { return !dropped_ && !closeAfterAnswer_; }
    bool stopping() const { return control_.stopping.load(); }
    const ConnectionLimits& limits() const { return control_.limits; }

    void drop() {
        linger lin{1, 0};  // the close becomes a reset
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &lin, sizeof lin);
        ::shutdown(fd_, SHUT_RDWR);
        dropped_ = true;
    }
    void closeAfterAnswer() { closeAfterAnswer_ = true; }

    // Waits in short slices so a stopping server is noticed; false on time-out, stop or drop.
    bool waitReadable(int timeoutMs) {
        if (buffered() > 0) return true;
        return wait(POLLIN, timeoutMs);
    }
    bool waitWritable(int timeoutMs) { return wait(POLLOUT, timeoutMs); }

    ssize_t read(char* out, std::size_t size) {
        if (begin_ == end_) {
            if (!waitReadable(limits().readTimeoutMs)) return -1;
            auto got = receive(buffer_, sizeof buffer_);
            if (got <= 0) return got;
            begin_ = 0;
            end_ = static_cast<std::size_t>(got);
        }
        auto n = std::min(size, end_ - begin_);
        std::memcpy(out, buffer_ + begin_, n);
        begin_ += n;
        return static_cast<ssize_t>(n);
    }

    ssize_t write(const char* data, std::size_t size) {
        if (dropped_ || !waitWritable(limits().writeTimeoutMs)) return -1;
        if (ssl_) {
            int n = SSL_write(ssl_, data, static_cast<int>(std::min<std::size_t>(size, 1 << 30)));
            return n > 0 ? n : -1;
        }
        ssize_t n;
        do n = ::send(fd_, data, size, MSG_NOSIGNAL);
        while (n < 0 && errno == EINTR);
        return n;
    }

private:
    std::size_t buffered() const {
        return (end_ - begin_) + (ssl_ && SSL_has_pending(ssl_) ? 1 : 0);
    }

    bool wait(short events, int timeoutMs) {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!dropped_ && !stopping()) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return false;
            pollfd p{fd_, events, 0};
            int r = ::poll(&p, 1, static_cast<int>(std::min<long long>(left, 100)));
            if (r > 0) return true;
            if (r < 0 && errno != EINTR) return false;
        }
        return false;
    }

    ssize_t receive(char* out, std::size_t size) {
        if (ssl_) {
            int n = SSL_read(ssl_, out, static_cast<int>(size));
            return n > 0 ? n : (SSL_get_error(ssl_, n) == SSL_ERROR_ZERO_RETURN ? 0 : -1);
        }
        ssize_t n;
        do n = ::recv(fd_, out, size, 0);
        while (n < 0 && errno == EINTR);
        return n;
    }

    // The answer is written but the request's body may still be arriving: closing with unread bytes
    // would reset the connection and could destroy the answer before the client reads it. Stop
    // writing, then read and discard briefly so the client sees the answer and the end.
    void lingeringClose() {
        ::shutdown(fd_, SHUT_WR);
        char sink[16384];
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        std::size_t total = 0;
        while (std::chrono::steady_clock::now() < deadline && total < (64u << 20)) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 100) <= 0) continue;
            auto n = ::recv(fd_, sink, sizeof sink, 0);
            if (n <= 0) break;
            total += static_cast<std::size_t>(n);
        }
    }

    ConnectionControl& control_;
    int fd_;
    SSL* ssl_;
    char buffer_[16384];
    std::size_t begin_ = 0, end_ = 0;
    bool dropped_ = false;
    bool closeAfterAnswer_ = false;
};

thread_local Connection* current = nullptr;

std::string addressText(const sockaddr_storage& addr, int& port) {
    char text[INET6_ADDRSTRLEN] = {};
    if (addr.ss_family == AF_INET) {
        const auto& a = reinterpret_cast<const sockaddr_in&>(addr);
        inet_ntop(AF_INET, &a.sin_addr, text, sizeof text);
        port = ntohs(a.sin_port);
    } else if (addr.ss_family == AF_INET6) {
        const auto& a = reinterpret_cast<const sockaddr_in6&>(addr);
        inet_ntop(AF_INET6, &a.sin6_addr, text, sizeof text);
        port = ntohs(a.sin6_port);
    }
    return text;
}

class ConnectionStream : public httplib::Stream {
public:
    explicit ConnectionStream(Connection& c) : c_(c) {}
    bool is_readable() const override { return c_.waitReadable(c_.limits().readTimeoutMs); }
    bool is_writable() const override { return c_.waitWritable(c_.limits().writeTimeoutMs); }
    ssize_t read(char* ptr, size_t size) override { return c_.read(ptr, size); }
    ssize_t write(const char* ptr, size_t size) override { return c_.write(ptr, size); }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage addr{};
        socklen_t len = sizeof addr;
        port = 0;
        if (getpeername(c_.fd(), reinterpret_cast<sockaddr*>(&addr), &len) == 0) ip = addressText(addr, port);
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage addr{};
        socklen_t len = sizeof addr;
        port = 0;
        if (getsockname(c_.fd(), reinterpret_cast<sockaddr*>(&addr), &len) == 0) ip = addressText(addr, port);
    }
    socket_t socket() const override { return c_.fd(); }

private:
    Connection& c_;
};

// The keep-alive loop: wait for a request, let the library read and answer it, until the client
// leaves, the count or time-out runs out, the handler closed the connection, or the server stops.
template <class Server>
bool serve(Server& server, ConnectionControl& control, int fd, SSL* ssl) {
    Connection connection(control, fd, ssl);
    current = &connection;
    bool ok = true;
    for (std::size_t count = control.limits.keepAliveMax; count > 0; --count) {
        if (!connection.waitReadable(control.limits.keepAliveTimeoutMs)) break;
        ConnectionStream stream(connection);
        bool closed = false;
        ok = server.answer(stream, count == 1 || control.stopping.load(), closed);
        if (!ok || closed || !connection.open()) break;
    }
    current = nullptr;
    return ok;
}

// A request in memory and the answer written back: the parsing and handling of a connection, no socket.
class MemoryStream : public httplib::Stream {
public:
    explicit MemoryStream(const std::string& in) : in_(in) {}
    bool is_readable() const override { return at_ < in_.size(); }
    bool is_writable() const override { return true; }
    ssize_t read(char* ptr, size_t size) override {
        auto n = std::min(size, in_.size() - at_);
        std::memcpy(ptr, in_.data() + at_, n);
        at_ += n;
        return static_cast<ssize_t>(n);
    }
    ssize_t write(const char* ptr, size_t size) override {
        out.append(ptr, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override { ip = "127.0.0.1", port = 40000; }
    void get_local_ip_and_port(std::string& ip, int& port) const override { ip = "127.0.0.1", port = 80; }
    socket_t socket() const override { return -1; }
    std::string out;

private:
    const std::string& in_;
    std::size_t at_ = 0;
};

void setTimeouts(int fd, const ConnectionLimits& limits) {
    auto tv = [](int ms) { return timeval{ms / 1000, (ms % 1000) * 1000}; };
    auto r = tv(limits.readTimeoutMs), w = tv(limits.writeTimeoutMs);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &r, sizeof r);  // bounds the TLS handshake's blocking reads
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &w, sizeof w);
}

class PlainServer : public httplib::Server {
public:
    explicit PlainServer(ConnectionControl& control) : control_(control) {}
    bool answer(httplib::Stream& stream, bool closeConnection, bool& closed) {
        return process_request(stream, closeConnection, closed, nullptr);
    }

private:
    bool process_and_close_socket(socket_t sock) override {
        setTimeouts(sock, control_.limits);
        return serve(*this, control_, sock, nullptr);
    }
    ConnectionControl& control_;
};

class TlsServer : public httplib::SSLServer {
public:
    TlsServer(ConnectionControl& control, X509* cert, EVP_PKEY* key) : SSLServer(cert, key), control_(control) {}
    bool answer(httplib::Stream& stream, bool closeConnection, bool& closed) {
        return process_request(stream, closeConnection, closed, nullptr);
    }

private:
    bool process_and_close_socket(socket_t sock) override {
        setTimeouts(sock, control_.limits);
        SSL* ssl = SSL_new(ssl_context());
        if (!ssl || SSL_set_fd(ssl, sock) != 1 || SSL_accept(ssl) != 1) {
            if (ssl) SSL_free(ssl);
            ::close(sock);
            return false;
        }
        return serve(*this, control_, sock, ssl);
    }
    ConnectionControl& control_;
};

}  // namespace

std::unique_ptr<httplib::Server> makePlainServer(ConnectionControl& control) {
    return std::make_unique<PlainServer>(control);
}

std::unique_ptr<httplib::Server> makeTlsServer(ConnectionControl& control, X509* cert, EVP_PKEY* key) {
    return std::make_unique<TlsServer>(control, cert, key);
}

std::string answerWithoutConnection(httplib::Server& server, const std::string& request) {
    auto* plain = dynamic_cast<PlainServer*>(&server);
    if (!plain) return {};
    MemoryStream stream(request);
    bool closed = false;
    plain->answer(stream, true, closed);
    return std::move(stream.out);
}

void dropCurrentConnection() {
    if (current) current->drop();
}

void closeCurrentConnectionAfterAnswer() {
    if (current) current->closeAfterAnswer();
}

ElasticPool::ElasticPool(std::size_t initialWorkers, std::size_t maxWorkers) : max_(std::max<std::size_t>(1, maxWorkers)) {
    std::lock_guard lock(mutex_);
    while (threads_.size() < std::min(initialWorkers, max_)) spawnLocked();
}

ElasticPool::~ElasticPool() { shutdown(); }

void ElasticPool::spawnLocked() {
    ++idle_;
    threads_.emplace_back([this] { work(); });
}

void ElasticPool::enqueue(std::function<void()> fn) {
    {
        std::lock_guard lock(mutex_);
        if (shutdown_) return;  // the server stopped accepting before this
        jobs_.push_back(std::move(fn));
        if (jobs_.size() > idle_ && threads_.size() < max_) spawnLocked();
    }
    wake_.notify_one();
}

void ElasticPool::shutdown() {
    std::vector<std::thread> threads;
    {
        std::lock_guard lock(mutex_);
        shutdown_ = true;
        threads.swap(threads_);
    }
    wake_.notify_all();
    for (auto& t : threads) t.join();
}

void ElasticPool::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return !jobs_.empty() || shutdown_; });
        if (jobs_.empty()) return;  // shut down with nothing left to do
        auto fn = std::move(jobs_.front());
        jobs_.pop_front();
        --idle_;
        lock.unlock();
        fn();
        lock.lock();
        ++idle_;
    }
}

}  // namespace quorvane::emulator
