#include "emulator/connections.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>

#include "emulator/waiting_room.h"

namespace quorvane::emulator {
namespace {

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
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &r, sizeof r);  // a worker's blocking reads and writes
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &w, sizeof w);
}

// Runs each job at once on the accepting thread: handing a connection to the waiting room is quick.
class InlineQueue : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> fn) override { fn(); }
    void shutdown() override {}
};

// The listening socket, as the library's socket-options hook saw it made (the library keeps it private).
struct ListenSocket {
    virtual ~ListenSocket() = default;
    int listenFd = -1;
};

// A cpp-httplib server (plain or TLS) whose connections this module serves: they wait in the waiting
// room, and a worker of its own pool answers each request whose head has arrived.
template <class Base, bool Tls>
class OwnServer : public Base, public ListenSocket {
public:
    template <class... Args>
    explicit OwnServer(ConnectionControl& control, Args&&... args)
        : Base(std::forward<Args>(args)...),
          control_(control),
          pool_(control.limits.initialWorkers, control.limits.maxWorkers),
          room_(control, [this](std::unique_ptr<Connection> c) { dispatch(std::move(c)); }) {
        this->new_task_queue = [] { return new InlineQueue; };
        // The library's default asks for SO_REUSEPORT, which lets a second server take the same port and
        // half of its connections. SO_REUSEADDR alone only allows a restart over lingering TIME_WAITs.
        this->set_socket_options([this](socket_t sock) {
            int yes = 1;
            ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
            listenFd = sock;
        });
    }
    ~OwnServer() override {
        room_.shutdown();
        pool_.shutdown();
    }
    bool answer(httplib::Stream& stream, bool closeConnection, bool& closed) {
        return this->process_request(stream, closeConnection, closed, nullptr);
    }

private:
    bool process_and_close_socket(socket_t sock) override {
        setTimeouts(sock, control_.limits);
        SSL* ssl = nullptr;
        if constexpr (Tls) {
            ssl = SSL_new(this->ssl_context());
            if (!ssl || SSL_set_fd(ssl, sock) != 1) {
                if (ssl) SSL_free(ssl);
                ::close(sock);
                return false;
            }
        }
        room_.admit(std::make_unique<Connection>(control_, sock, ssl));
        return true;
    }

    void dispatch(std::unique_ptr<Connection> c) {
        auto holder = std::make_shared<std::unique_ptr<Connection>>(std::move(c));  // closes if never run
        pool_.enqueue([this, holder] { serveOne(std::move(*holder)); });
    }

    // One request, then back to the waiting room unless the connection is done.
    void serveOne(std::unique_ptr<Connection> c) {
        current = c.get();
        ConnectionStream stream(*c);
        bool closed = false;
        const bool last = ++c->served >= control_.limits.keepAliveMax || control_.stopping.load();
        bool ok = answer(stream, last, closed);
        current = nullptr;
        if (ok && !closed && !last && c->open() && !control_.stopping.load()) room_.admit(std::move(c));
    }

    ConnectionControl& control_;
    ElasticPool pool_;
    WaitingRoom room_;
};

using PlainServer = OwnServer<httplib::Server, false>;
using TlsServer = OwnServer<httplib::SSLServer, true>;

std::string hostPortText(const std::string& host, int port) {
    auto h = host.find(':') != std::string::npos && host.front() != '[' ? "[" + host + "]" : host;
    return h + ":" + std::to_string(port);
}

// Why host:port cannot be bound, found by trying it with a socket of our own.
std::string bindProblem(const std::string& host, int port) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    const auto where = hostPortText(host, port);
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0 || !found)
        return "cannot listen on " + where + ": not an address of this machine";
    int err = 0;
    int fd = ::socket(found->ai_family, found->ai_socktype, found->ai_protocol);
    if (fd >= 0) {
        int yes = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        if (::bind(fd, found->ai_addr, found->ai_addrlen) != 0) err = errno;
        ::close(fd);
    } else {
        err = errno;
    }
    freeaddrinfo(found);
    if (err == EADDRINUSE) return where + " is in use by another program (pick another --port, or stop it)";
    if (err == EACCES) return "cannot listen on " + where + ": permission denied";
    if (err == EADDRNOTAVAIL) return "cannot listen on " + where + ": not an address of this machine";
    return "cannot listen on " + where + (err ? std::string(": ") + std::strerror(err) : std::string());
}

}  // namespace

std::unique_ptr<httplib::Server> makePlainServer(ConnectionControl& control) {
    return std::make_unique<PlainServer>(control);
}

std::unique_ptr<httplib::Server> makeTlsServer(ConnectionControl& control, X509* cert, EVP_PKEY* key) {
    return std::make_unique<TlsServer>(control, cert, key);
}

int maxListenBacklog() {
    int most = 0;
    std::ifstream("/proc/sys/net/core/somaxconn") >> most;
    return most > 0 ? most : SOMAXCONN;
}

void raiseOpenFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

bool listenExclusively(httplib::Server& server, const std::string& host, int& port, std::string& error) {
    auto* socket = dynamic_cast<ListenSocket*>(&server);
    bool bound = port == 0 ? (port = server.bind_to_any_port(host)) > 0 : server.bind_to_port(host, port);
    if (!bound) {
        error = bindProblem(host, port);
        return false;
    }
    // The library listens with a backlog of 5: clients connecting together would overflow it and
    // wait a second for their SYN to be sent again. Listening again only changes the backlog.
    int accepting = 0;
    socklen_t size = sizeof accepting;
    if (socket && socket->listenFd >= 0 &&
        ::getsockopt(socket->listenFd, SOL_SOCKET, SO_ACCEPTCONN, &accepting, &size) == 0 && accepting)
        ::listen(socket->listenFd, maxListenBacklog());
    return true;
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
