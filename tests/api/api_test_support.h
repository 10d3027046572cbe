#pragma once
// Loopback HTTP server and main-loop waiting for the façade tests.
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/dispatch.h"

namespace quorvane::testing {

// Runs the main loop until `done` holds (generous timeout for a loaded machine).
inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Keeps the main loop turning for a while, so a stray second callback would show.
inline void settle(std::chrono::milliseconds time = std::chrono::milliseconds(150)) {
    foundation::MainLoop::instance().runUntil([] { return false; }, time);
}

// A cpp-httplib server on 127.0.0.1 and a free port, answering every GET/POST with the scripted
// status and body and recording what arrived. Stopped when it goes out of scope.
class LoopbackServer {
public:
    struct Received {
        std::string method, path, body;
        httplib::Headers headers;
        httplib::Params params;
        httplib::MultipartFormDataMap parts;
    };

    LoopbackServer() {
        auto handler = [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard lock(mutex_);
            received_.push_back({req.method, req.path, req.body, req.headers, req.params, req.files});
            res.status = status_;
            res.set_content(body_, "application/json");
        };
        server_.set_keep_alive_max_count(1);  // no idle connection holds up stop()
        server_.Get(".*", handler);
        server_.Post(".*", handler);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~LoopbackServer() {
        server_.stop();
        thread_.join();
    }
    void answer(int status, std::string body) {
        std::lock_guard lock(mutex_);
        status_ = status;
        body_ = std::move(body);
    }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }
    std::vector<Received> received() const {
        std::lock_guard lock(mutex_);
        return received_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<Received> received_;
    int status_ = 200;
    std::string body_ = "{}";
};

// Accepts one connection on loopback and keeps the request's header block as the bytes that
// arrived. cpp-httplib drops headers whose value is empty, so checks on those read the raw lines.
class RawCaptureServer {
public:
    RawCaptureServer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 4);
        socklen_t length = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serveOne(); });
    }
    ~RawCaptureServer() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/raw"; }
    // The header lines, each ending in CRLF, once the request has arrived.
    std::string head() const {
        std::lock_guard lock(mutex_);
        return head_;
    }

private:
    void serveOne() {
        int connection = ::accept(listener_, nullptr, nullptr);
        if (connection < 0) return;
        std::string bytes;
        char buffer[4096];
        std::size_t end;
        while ((end = bytes.find("\r\n\r\n")) == std::string::npos) {
            auto n = ::recv(connection, buffer, sizeof buffer, 0);
            if (n <= 0) break;
            bytes.append(buffer, static_cast<std::size_t>(n));
        }
        {
            std::lock_guard lock(mutex_);
            head_ = bytes.substr(0, end == std::string::npos ? bytes.size() : end + 2);
        }
        // Answer without reading the body; the connection closes after it.
        const char reply[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}";
        ::send(connection, reply, sizeof reply - 1, MSG_NOSIGNAL);
        ::shutdown(connection, SHUT_WR);
        while (::recv(connection, buffer, sizeof buffer, 0) > 0) {
        }
        ::close(connection);
    }
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::string head_;
};

// A URL on loopback where nothing listens: the port of a server that has been stopped.
inline std::string unreachableUrl() {
    std::string url;
    {
        LoopbackServer gone;
        url = gone.url("/gone");
    }
    return url;
}

}  // namespace quorvane::testing
