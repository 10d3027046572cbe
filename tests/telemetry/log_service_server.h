#pragma once
// A stand-in log service on a free loopback port: records the raw query of every track request,
// and can hold requests on a latch to play a stalled service.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "VODUpload/src/AVCVEventTransport.h"
#include "foundation/http_client.h"
#include "support/loopback_http.h"

namespace quorvane::test {

struct TrackRequest {
    std::string logstore;
    std::string rawQuery;  // as sent, without '?'
};

class LogServiceServer {
public:
    LogServiceServer() {
        server_.http().Get(R"(/logstores/([^/]+)/track)", [this](const httplib::Request& req, httplib::Response& res) {
            {
                std::unique_lock lock(mutex_);
                ++entered_;
                changed_.notify_all();
                changed_.wait(lock, [this] { return !holding_; });
                const auto mark = req.target.find('?');
                received_.push_back({req.matches[1], mark == std::string::npos ? "" : req.target.substr(mark + 1)});
                changed_.notify_all();
            }
            res.set_content("", "text/plain");
        });
        server_.start();
    }
    ~LogServiceServer() {
        release();
        server_.stop();
    }
    LogServiceServer(const LogServiceServer&) = delete;
    LogServiceServer& operator=(const LogServiceServer&) = delete;

    std::string endpoint() const { return server_.url(); }

    // Requests arriving from now on wait until release().
    void hold() {
        std::lock_guard lock(mutex_);
        holding_ = true;
    }
    void release() {
        std::lock_guard lock(mutex_);
        holding_ = false;
        changed_.notify_all();
    }
    bool waitForRequests(std::size_t count, std::chrono::seconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return received_.size() >= count; });
    }
    bool waitForEntered(std::size_t count, std::chrono::seconds timeout) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return entered_ >= count; });
    }
    std::vector<TrackRequest> received() const {
        std::lock_guard lock(mutex_);
        return received_;
    }

private:
    LoopbackHttpServer server_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool holding_ = false;
    std::size_t entered_ = 0;
    std::vector<TrackRequest> received_;
};

// A transport on its own HTTP client: destroying it closes its kept-alive connections, so a test
// server declared before it stops at once instead of waiting out the keep-alive.
inline std::shared_ptr<AVCVEventTransport> makeTransport(AVCVEventTransportOptions options = {}) {
    options.client = std::make_shared<foundation::HttpClient>(foundation::HttpClientOptions{2, 8});
    return std::make_shared<AVCVEventTransport>(options);
}

// The "key=value" pairs of a raw query, in order, values left as sent.
inline std::vector<std::pair<std::string, std::string>> queryPairs(const std::string& rawQuery) {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::size_t start = 0;
    while (start <= rawQuery.size()) {
        std::size_t end = rawQuery.find('&', start);
        if (end == std::string::npos) end = rawQuery.size();
        const std::string pair = rawQuery.substr(start, end - start);
        const std::size_t eq = pair.find('=');
        pairs.emplace_back(pair.substr(0, eq), eq == std::string::npos ? "" : pair.substr(eq + 1));
        start = end + 1;
    }
    return pairs;
}

}  // namespace quorvane::test
