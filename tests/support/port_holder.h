#pragma once
// A listening socket on 127.0.0.1 that holds a free port, offering to share it (SO_REUSEPORT) as a
// careless second server would: a server that binds exclusively must still be refused the port.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quorvane::test {

class PortHolder {
public:
    PortHolder() {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        int yes = 1;
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        inet_pton(AF_INET, "127.0.0.1", &addr.sin_addr);
        socklen_t size = sizeof addr;
        if (::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && ::listen(fd_, 8) == 0 &&
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &size) == 0)
            port_ = ntohs(addr.sin_port);
    }
    ~PortHolder() { release(); }
    PortHolder(const PortHolder&) = delete;
    PortHolder& operator=(const PortHolder&) = delete;

    int port() const { return port_; }  // 0 when no port could be held
    void release() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
    int port_ = 0;
};

}  // namespace quorvane::test
