#pragma once
// A cpp-httplib server on a free loopback port, stopped when it goes out of scope (also when an
// assertion fails). Its canned answers record every request they serve.
#include <mutex>
#include <string>
#include <vector>

#include "support/loopback_http.h"

namespace vodapi_test {

class LoopbackServer {
public:
    struct Seen {
        std::string method, path, target, body, contentType;
        httplib::Params params;
    };

    LoopbackServer() {
        // One request per connection, so stopping never waits for an idle kept-alive client.
        server_.http().set_keep_alive_max_count(1);
        server_.start();
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
        if (method == "POST") server_.http().Post(path, handler);
        else server_.http().Get(path, handler);
    }

    std::string base() const { return server_.url("/"); }
    std::vector<Seen> seen() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return seen_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Seen> seen_;
    quorvane::test::LoopbackHttpServer server_;  // last: stopped before what its handlers use goes
};

// A base URL where nothing listens: the port of a server that has just stopped.
inline std::string deadBase() {
    LoopbackServer gone;
    return gone.base();
}

}  // namespace vodapi_test
