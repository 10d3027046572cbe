// Alone in its file: the kernel's <linux/tcp.h> (whose tcp_info has the byte counters) cannot be
// included beside glibc's <netinet/tcp.h>, which Asio and others pull in.
#include "foundation/socket_stats.h"

#include <linux/tcp.h>

#include <cstddef>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <vector>

namespace quorvane::foundation {

std::uint64_t tcpBytesMoved(int fd) {
    tcp_info info{};
    socklen_t length = sizeof info;
    if (fd < 0 || ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0) return 0;
    // Older kernels fill a shorter record: only trust counters the answer reached.
    if (length < offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received) return 0;
    return info.tcpi_bytes_acked + info.tcpi_bytes_received;
}

namespace {
thread_local std::vector<int> openSockets;

long localPortOf(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -1;
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
    return -1;
}
}  // namespace

void noteSocketOpened(int fd) { openSockets.push_back(fd); }

void noteSocketClosed(int fd) { std::erase(openSockets, fd); }

int openSocketWithLocalPort(long localPort) {
    if (localPort <= 0) return -1;
    auto it = std::find_if(openSockets.begin(), openSockets.end(), [&](int fd) { return localPortOf(fd) == localPort; });
    return it == openSockets.end() ? -1 : *it;
}

}  // namespace quorvane::foundation
