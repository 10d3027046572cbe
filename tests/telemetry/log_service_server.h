#pragma once
// A stand-in log service on a free loopback port: records the raw query of every track request,
// and can hold requests on a latch to play a stalled service.
#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "VODUpload/src/AVCVEventTransport.h"
#include "foundation/http_client.h"

namespace quorvane::test {

struct TrackRequest {
    std::string logstore;
    std::string rawQuery;  // as sent, without '?'
};

class LogServiceServer {
public:
    LogServiceServer() {
        server_.Get(R"(/logstores/([^/]+)/track)", [this](const httplib::Request& req, httplib::Response& res) {
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
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~LogServiceServer() {
        release();
        server_.stop();
        thread_.join();
    }
    LogServiceServer(const LogServiceServer&) = delete;
    LogServiceServer& operator=(const LogServiceServer&) = delete;

    std::string endpoint() const { return "http://127.0.0.1:" + std::to_string(port_); }

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
    httplib::Server server_;
    std::thread thread_;
    int port_ = 0;
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
