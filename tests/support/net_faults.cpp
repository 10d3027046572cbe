#include "support/net_faults.h"

#include <asio.hpp>
#include <netinet/tcp.h>

#include <array>
#include <atomic>
#include <list>
#include <thread>

namespace quorvane::test {
namespace {

using asio::ip::tcp;

// Runs an io_context on its own thread until destroyed.
struct Loop {
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> work{io.get_executor()};
    std::thread thread;
    void start() { thread = std::thread([this] { io.run(); }); }
    void stop() {
        work.reset();
        io.stop();
        if (thread.joinable()) thread.join();
    }
};

// `linkLike`: accepted connections behave as over a real link rather than loopback: a segment size of
// an Ethernet path (loopback's 64 KiB segments make window updates come in 64 KiB steps) and a
// small receive buffer, so the sender sees its bytes acknowledged at the pace they are read.
tcp::acceptor loopbackAcceptor(asio::io_context& io, bool linkLike = false) {
    tcp::acceptor acceptor(io);
    acceptor.open(tcp::v4());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    // Inherited by accepted sockets; set before listen so the handshake advertises them.
    if (linkLike) {
        acceptor.set_option(asio::socket_base::receive_buffer_size(4096));
        acceptor.set_option(asio::detail::socket_option::integer<IPPROTO_TCP, TCP_MAXSEG>(1400));
    }
    acceptor.bind(tcp::endpoint(asio::ip::address_v4::loopback(), 0));
    acceptor.listen();
    return acceptor;
}

std::string endpointOf(std::uint16_t port) { return "http://127.0.0.1:" + std::to_string(port); }

}  // namespace

struct SilentServer::Impl {
    Loop loop;
    tcp::acceptor acceptor{loopbackAcceptor(loop.io)};
    std::list<std::pair<tcp::socket, std::array<char, 16384>>> peers;
    std::atomic<int> accepted{0};

    void acceptNext() {
        acceptor.async_accept([this](std::error_code ec, tcp::socket socket) {
            if (ec) return;
            ++accepted;
            peers.emplace_back(std::move(socket), std::array<char, 16384>{});
            drain(peers.back());
            acceptNext();
        });
    }
    void drain(std::pair<tcp::socket, std::array<char, 16384>>& peer) {
        peer.first.async_read_some(asio::buffer(peer.second), [this, &peer](std::error_code ec, std::size_t) {
            if (!ec) drain(peer);
        });
    }
};

SilentServer::SilentServer() : impl_(std::make_unique<Impl>()) {
    impl_->acceptNext();
    impl_->loop.start();
}

SilentServer::~SilentServer() {
    asio::post(impl_->loop.io, [impl = impl_.get()] {
        impl->acceptor.close();
        for (auto& p : impl->peers) p.first.close();
    });
    impl_->loop.stop();
}

std::uint16_t SilentServer::port() const { return impl_->acceptor.local_endpoint().port(); }
std::string SilentServer::endpoint() const { return endpointOf(port()); }
int SilentServer::connectionsAccepted() const { return impl_->accepted; }

struct ThrottledProxy::Impl {
    // A slice every 50 ms keeps the flow even enough that no second passes without bytes.
    static constexpr auto kTick = std::chrono::milliseconds(50);

    struct Session : std::enable_shared_from_this<Session> {
        Impl& owner;
        tcp::socket client, upstream;
        asio::steady_timer timer;
        std::array<char, 65536> up{}, down{};
        explicit Session(Impl& o, tcp::socket c)
            : owner(o), client(std::move(c)), upstream(o.loop.io), timer(o.loop.io) {}

        void start() {
            auto self = shared_from_this();
            upstream.async_connect(tcp::endpoint(asio::ip::address_v4::loopback(), owner.upstreamPort),
                                   [self](std::error_code ec) {
                                       if (ec) return self->close();
                                       self->pumpUp();
                                       self->pumpDown();
                                   });
        }
        void close() {
            std::error_code ignored;
            client.close(ignored);
            upstream.close(ignored);
            timer.cancel();
        }
        // One slice of the rate per tick, client to upstream.
        void pumpUp() {
            auto self = shared_from_this();
            const std::size_t slice = std::max<std::size_t>(
                1, std::min<std::size_t>(up.size(), owner.rate * kTick.count() / 1000));
            client.async_read_some(asio::buffer(up.data(), slice), [self](std::error_code ec, std::size_t n) {
                if (ec) return self->close();
                asio::async_write(self->upstream, asio::buffer(self->up.data(), n),
                                  [self, n](std::error_code ec2, std::size_t) {
                                      if (ec2) return self->close();
                                      self->owner.forwarded += n;
                                      self->timer.expires_after(kTick);
                                      self->timer.async_wait([self](std::error_code ec3) {
                                          if (!ec3) self->pumpUp();
                                      });
                                  });
            });
        }
        void pumpDown() {
            auto self = shared_from_this();
            upstream.async_read_some(asio::buffer(down), [self](std::error_code ec, std::size_t n) {
                if (ec) return self->close();
                asio::async_write(self->client, asio::buffer(self->down.data(), n),
                                  [self](std::error_code ec2, std::size_t) {
                                      if (ec2) return self->close();
                                      self->pumpDown();
                                  });
            });
        }
    };

    Impl(std::uint16_t port, std::uint64_t bytesPerSecond) : upstreamPort(port), rate(bytesPerSecond) {}
    std::uint16_t upstreamPort;
    std::uint64_t rate;
    Loop loop;
    tcp::acceptor acceptor{loopbackAcceptor(loop.io, true)};
    std::list<std::weak_ptr<Session>> sessions;
    std::atomic<std::uint64_t> forwarded{0};

    void acceptNext() {
        acceptor.async_accept([this](std::error_code ec, tcp::socket socket) {
            if (ec) return;
            auto session = std::make_shared<Session>(*this, std::move(socket));
            sessions.push_back(session);
            session->start();
            acceptNext();
        });
    }
};

ThrottledProxy::ThrottledProxy(std::uint16_t upstreamPort, std::uint64_t bytesPerSecond)
    : impl_(std::make_unique<Impl>(upstreamPort, bytesPerSecond)) {
    impl_->acceptNext();
    impl_->loop.start();
}

ThrottledProxy::~ThrottledProxy() {
    asio::post(impl_->loop.io, [impl = impl_.get()] {
        impl->acceptor.close();
        for (auto& weak : impl->sessions)
            if (auto s = weak.lock()) s->close();
    });
    impl_->loop.stop();
}

std::uint16_t ThrottledProxy::port() const { return impl_->acceptor.local_endpoint().port(); }
std::string ThrottledProxy::endpoint() const { return endpointOf(port()); }
std::uint64_t ThrottledProxy::bytesForwarded() const { return impl_->forwarded; }

}  // namespace quorvane::test
