#include "emulator/connection.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace quorvane::emulator {

Connection::Connection(ConnectionControl& control, int fd, SSL* ssl) : control_(control), fd_(fd), ssl_(ssl) {
    handshaken_ = ssl_ == nullptr;
}

Connection::~Connection() {
    if (ssl_) {
        if (!dropped_ && handshaken_) SSL_shutdown(ssl_);
        SSL_free(ssl_);
    }
    if (closeAfterAnswer_ && !dropped_ && !ssl_) lingeringClose();
    ::close(fd_);
}

void Connection::setBlocking(bool blocking) {
    int flags = ::fcntl(fd_, F_GETFL, 0);
    if (flags < 0) return;
    ::fcntl(fd_, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

bool Connection::headComplete() const {
    std::string_view text(buffer_ + begin_, end_ - begin_);
    return text.find("\n\r\n") != std::string_view::npos || text.find("\n\n") != std::string_view::npos;
}

Connection::Progress Connection::advance() {
    if (!handshaken_) {
        ERR_clear_error();
        int r = SSL_accept(ssl_);
        if (r != 1) {
            int e = SSL_get_error(ssl_, r);
            if (e == SSL_ERROR_WANT_READ) return Progress::WantRead;
            if (e == SSL_ERROR_WANT_WRITE) return Progress::WantWrite;
            return Progress::Closed;
        }
        handshaken_ = true;
    }
    for (;;) {
        if (headComplete()) return Progress::Ready;
        if (begin_ > 0) {  // keep what arrived at the front, so the whole head fits
            std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        if (end_ == sizeof buffer_) return Progress::Ready;  // a head this long: let the parser refuse it
        ssize_t n;
        if (ssl_) {
            ERR_clear_error();
            int r = SSL_read(ssl_, buffer_ + end_, static_cast<int>(sizeof buffer_ - end_));
            if (r <= 0) {
                int e = SSL_get_error(ssl_, r);
                if (e == SSL_ERROR_WANT_READ) return Progress::WantRead;
                if (e == SSL_ERROR_WANT_WRITE) return Progress::WantWrite;
                return Progress::Closed;
            }
            n = r;
        } else {
            do n = ::recv(fd_, buffer_ + end_, sizeof buffer_ - end_, 0);
            while (n < 0 && errno == EINTR);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Progress::WantRead;
            if (n <= 0) return Progress::Closed;
        }
        end_ += static_cast<std::size_t>(n);
    }
}

void Connection::drop() {
    linger lin{1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &lin, sizeof lin);
    ::shutdown(fd_, SHUT_RDWR);
    dropped_ = true;
}

bool Connection::waitReadable(int timeoutMs) {
    if (buffered() > 0) return true;
    return wait(POLLIN, timeoutMs);
}

ssize_t Connection::read(char* out, std::size_t size) {
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

ssize_t Connection::write(const char* data, std::size_t size) {
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

std::size_t Connection::buffered() const { return (end_ - begin_) + (ssl_ && SSL_has_pending(ssl_) ? 1 : 0); }

// Waits in short slices so a stopping server is noticed; false on time-out, stop or drop.
bool Connection::wait(short events, int timeoutMs) {
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

ssize_t Connection::receive(char* out, std::size_t size) {
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
void Connection::lingeringClose() {
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

}  // namespace quorvane::emulator
