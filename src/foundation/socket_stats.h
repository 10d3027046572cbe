#pragma once
// What the kernel knows of a TCP connection's traffic, for telling a slow link from a silent one.
#include <cstdint>

namespace quorvane::foundation {

// Bytes the peer has acknowledged plus bytes received on the connected TCP socket `fd`; 0 when the
// kernel cannot say (not TCP, closed, an old kernel).
std::uint64_t tcpBytesMoved(int fd);

// The sockets libcurl has opened on this thread and not yet closed (each HTTP client runs its
// transfers on a thread of its own), so a transfer can find the one its connection uses, whether new
// or reused: libcurl 7.x names it only once the transfer is over.
void noteSocketOpened(int fd);
void noteSocketClosed(int fd);
// The open socket whose local port is `localPort`; -1 when there is none.
int openSocketWithLocalPort(long localPort);

}  // namespace quorvane::foundation
