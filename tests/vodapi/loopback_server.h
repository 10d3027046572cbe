#pragma once
// A cpp-httplib server on a free loopback port, stopped when it goes out of scope (also when an
// assertion fails). Its canned answers record every request they serve.
#include <httplib.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vodapi_test {

class LoopbackServer {
public:
    struct Seen {
        std::string method, path, target, body, contentType;
        httplib::Params params;
    };

    LoopbackServer() {
        // One request per connection, so stopping never waits for an idle kept-alive client.
        server_.set_keep_alive_max_count(1);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        for (int i = 0; i < 2000 && !server_.is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ~LoopbackServer() {
        server_.stop();
        if (thread_.joinable()) thread_.join();
    }

    // Answers GET (or POST) requests for `path` with `status` and a JSON `body`.
    void answer(const std::string& method, const std::string& path, int status, std::string body) {
        auto handler = [this, status, body](const httplib::Request& req, httplib::Response& res) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                seen_.push_back({req.method, req.path, req.target, req.body, req.get_header_value("Content-Type"),
                                 req.params});
            }
            res.status = status;
            res.set_content(body, "application/json");
        };
        if (method == "POST") server_.Post(path, handler);
        else server_.Get(path, handler);
    }

    int port() const { return port_; }
    std::string base() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }
    std::vector<Seen> seen() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return seen_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<Seen> seen_;
};

// A base URL where nothing listens: the port of a server that has just stopped.
inline std::string deadBase() {
    LoopbackServer gone;
    return gone.base();
}

}  // namespace vodapi_test
