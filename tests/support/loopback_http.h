#pragma once
// A cpp-httplib server on a free loopback port, serving on its own thread from start() until stop()
// or the end of its scope (also when an assertion fails).
#include <httplib.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace quorvane::test {

class LoopbackHttpServer {
public:
    LoopbackHttpServer() = default;
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;
    ~LoopbackHttpServer() { stop(); }

    httplib::Server& http() { return server_; }
    // Call after adding the handlers.
    void start() {
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    void stop() {
        server_.stop();
        if (thread_.joinable()) thread_.join();
    }
    std::uint16_t port() const { return static_cast<std::uint16_t>(port_); }
    std::string url(const std::string& path = "") const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

private:
    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
};

}  // namespace quorvane::test
