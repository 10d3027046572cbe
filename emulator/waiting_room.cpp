#include "emulator/waiting_room.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace quorvane::emulator {

using Clock = std::chrono::steady_clock;

WaitingRoom::WaitingRoom(ConnectionControl& control, Serve serve) : control_(control), serve_(std::move(serve)) {
    epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.fd = wake_;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &ev);
    thread_ = std::thread([this] { run(); });
}

WaitingRoom::~WaitingRoom() {
    shutdown();
    ::close(wake_);
    ::close(epoll_);
}

void WaitingRoom::admit(std::unique_ptr<Connection> connection) {
    {
        std::lock_guard lock(mutex_);
        if (shut_) return;  // the connection closes here
        admitted_.push_back(std::move(connection));
    }
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wake_, &one, sizeof one);
}

void WaitingRoom::shutdown() {
    {
        std::lock_guard lock(mutex_);
        if (shut_) return;
        shut_ = true;
    }
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wake_, &one, sizeof one);
    if (thread_.joinable()) thread_.join();
}

void WaitingRoom::run() {
    std::vector<epoll_event> events(256);
    auto lastSweep = Clock::now();
    for (;;) {
        int n = ::epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 100);
        std::vector<std::unique_ptr<Connection>> incoming;
        {
            std::lock_guard lock(mutex_);
            if (shut_) break;
            incoming.swap(admitted_);
        }
        for (int i = 0; i < n; ++i) {
            int fd = events[i].data.fd;
            if (fd == wake_) {
                std::uint64_t value;
                [[maybe_unused]] auto r = ::read(wake_, &value, sizeof value);
                continue;
            }
            auto it = entries_.find(fd);
            if (it != entries_.end()) step(it->second);
            if (it != entries_.end() && !it->second.connection) entries_.erase(it);
        }
        for (auto& connection : incoming) take(std::move(connection));
        if (Clock::now() - lastSweep >= std::chrono::milliseconds(100)) {
            expire();
            lastSweep = Clock::now();
        }
    }
    entries_.clear();  // closes every waiting connection
    std::lock_guard lock(mutex_);
    admitted_.clear();
}

void WaitingRoom::take(std::unique_ptr<Connection> connection) {
    int fd = connection->fd();
    connection->setBlocking(false);
    Entry entry;
    // A connection that has answered waits the keep-alive time for its next request; a new one as long.
    entry.deadline = Clock::now() + std::chrono::milliseconds(connection->limits().keepAliveTimeoutMs);
    entry.connection = std::move(connection);
    auto [it, fresh] = entries_.insert_or_assign(fd, std::move(entry));
    (void)fresh;
    step(it->second);  // bytes may be buffered already (pipelined requests, a TLS record)
    if (!it->second.connection) entries_.erase(it);
}

void WaitingRoom::step(Entry& entry) {
    auto& c = *entry.connection;
    const auto before = c.pending();
    auto progress = control_.stopping ? Connection::Progress::Closed : c.advance();
    if (progress == Connection::Progress::Ready) {
        ::epoll_ctl(epoll_, EPOLL_CTL_DEL, c.fd(), nullptr);
        c.setBlocking(true);
        serve_(std::move(entry.connection));
        return;
    }
    if (progress == Connection::Progress::Closed) {
        if (entry.events) ::epoll_ctl(epoll_, EPOLL_CTL_DEL, c.fd(), nullptr);
        entry.connection.reset();
        return;
    }
    // Part of a head: the request has begun, and silence inside a request has its own limit.
    if (c.pending() > before) entry.deadline = Clock::now() + std::chrono::milliseconds(c.limits().readTimeoutMs);
    std::uint32_t wanted = (progress == Connection::Progress::WantWrite ? EPOLLOUT : EPOLLIN) | EPOLLRDHUP;
    if (wanted == entry.events) return;
    epoll_event ev{};
    ev.events = wanted;
    ev.data.fd = c.fd();
    if (::epoll_ctl(epoll_, entry.events ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, c.fd(), &ev) != 0) {
        entry.connection.reset();
        return;
    }
    entry.events = wanted;
}

void WaitingRoom::expire() {
    const auto now = Clock::now();
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (it->second.deadline <= now) {
            ::epoll_ctl(epoll_, EPOLL_CTL_DEL, it->first, nullptr);
            it = entries_.erase(it);
        } else {
            ++it;
        }
    }
}

}  // namespace quorvane::emulator
