// A TCP proxy that holds every chunk of bytes for a fixed time in each direction, so a loopback service
// looks like one a network's round trip away: `delay_proxy LISTEN_PORT UPSTREAM_PORT ONE_WAY_MS`.
// Prints "ready PORT" once it listens (0 picks a free port). Bytes are never held back by the ones behind
// them: each direction is a reader that stamps what arrives and a writer that sends it when it is due.
// Connection set-up itself is not delayed (the kernel accepts at once), which favours whoever opens
// more connections.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

struct Chunk {
    Clock::time_point due;
    std::string bytes;  // empty: the sender closed its side
};

class Pipe {
public:
    Pipe(int from, int to, std::chrono::milliseconds delay) : from_(from), to_(to), delay_(delay) {}

    void run() {
        std::thread writer([this] { write(); });
        read();
        writer.join();
    }

private:
    void read() {
        std::string buffer(256 * 1024, '\0');
        for (;;) {
            ssize_t n = ::recv(from_, buffer.data(), buffer.size(), 0);
            std::lock_guard lock(mutex_);
            queue_.push_back({Clock::now() + delay_, n > 0 ? buffer.substr(0, static_cast<std::size_t>(n)) : ""});
            wake_.notify_one();
            if (n <= 0) return;
        }
    }

    void write() {
        for (;;) {
            Chunk chunk;
            {
                std::unique_lock lock(mutex_);
                wake_.wait(lock, [this] { return !queue_.empty(); });
                chunk = std::move(queue_.front());
                queue_.pop_front();
            }
            std::this_thread::sleep_until(chunk.due);
            if (chunk.bytes.empty()) {
                ::shutdown(to_, SHUT_WR);
                return;
            }
            for (std::size_t sent = 0; sent < chunk.bytes.size();) {
                ssize_t n = ::send(to_, chunk.bytes.data() + sent, chunk.bytes.size() - sent, MSG_NOSIGNAL);
                if (n <= 0) {
                    ::shutdown(from_, SHUT_RD);  // the reader ends on its next recv
                    drain();
                    return;
                }
                sent += static_cast<std::size_t>(n);
            }
        }
    }

    // After a failed send the reader still queues what arrives until it sees the end; nobody sends it.
    void drain() {
        for (;;) {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return !queue_.empty(); });
            bool end = queue_.front().bytes.empty();
            queue_.pop_front();
            if (end) return;
        }
    }

    int from_, to_;
    std::chrono::milliseconds delay_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Chunk> queue_;
};

int connectTo(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

void serve(int client, int upstreamPort, std::chrono::milliseconds delay) {
    int upstream = connectTo(upstreamPort);
    if (upstream < 0) {
        ::close(client);
        return;
    }
    int one = 1;
    ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ::setsockopt(upstream, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    Pipe up(client, upstream, delay), down(upstream, client, delay);
    std::thread t([&] { up.run(); });
    down.run();
    t.join();
    ::close(client);
    ::close(upstream);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: delay_proxy LISTEN_PORT UPSTREAM_PORT ONE_WAY_MS\n");
        return 2;
    }
    const int listenPort = std::atoi(argv[1]), upstreamPort = std::atoi(argv[2]);
    const std::chrono::milliseconds delay(std::atoi(argv[3]));
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(listenPort));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, SOMAXCONN) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        std::perror("delay_proxy");
        return 1;
    }
    std::printf("ready %d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    for (;;) {
        int client = ::accept(fd, nullptr, nullptr);
        if (client < 0) continue;
        std::thread(serve, client, upstreamPort, delay).detach();
    }
}
