// What a telemetry event costs its caller: per-call latency of AVCVEventManager::sendEvent with the
// real Linux reachability probe and device facts, against a log service that answers at once and
// one that never answers (every request held), plus how many events were dropped.
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "foundation/http_client.h"

using namespace quorvane;
using Clock = std::chrono::steady_clock;

namespace {

struct Server {
    httplib::Server http;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable released;
    bool hold = false;
    int port = 0;

    explicit Server(bool stalled) : hold(stalled) {
        http.Get(R"(/logstores/([^/]+)/track)", [this](const httplib::Request&, httplib::Response& res) {
            std::unique_lock lock(mutex);
            released.wait(lock, [this] { return !hold; });
            res.set_content("", "text/plain");
        });
        port = http.bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { http.listen_after_bind(); });
        while (!http.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~Server() {
        {
            std::lock_guard lock(mutex);
            hold = false;
            released.notify_all();
        }
        http.stop();
        thread.join();
    }
};

void run(const char* label, bool stalled, int events) {
    Server server(stalled);
    auto transport = std::make_shared<AVCVEventTransport>(AVCVEventTransportOptions{
        4, 20, std::make_shared<foundation::HttpClient>(foundation::HttpClientOptions{2, 8})});
    AVCVEventManager manager;
    manager.setTransport(transport);
    manager.setEndpoint("http://127.0.0.1:" + std::to_string(server.port));
    const Value common = {{"pd", "upload"}, {"md", "uploader"}, {"sm", "upload"}, {"av", "1.6.5"}};
    std::vector<double> micros;
    micros.reserve(events);
    const auto start = Clock::now();
    for (int i = 0; i < events; ++i) {
        const auto before = Clock::now();
        manager.sendEvent(1001 + i % 7, Value{{"fs", i}, {"ft", "video/mp4"}}, common);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
    }
    const double total = std::chrono::duration<double>(Clock::now() - start).count();
    std::sort(micros.begin(), micros.end());
    auto at = [&](double q) { return micros[static_cast<std::size_t>(q * (micros.size() - 1))]; };
    std::printf("%-10s events %6d  total %7.3f s  per call p50 %7.1f us  p99 %7.1f us  max %8.1f us  dropped %6llu\n",
                label, events, total, at(0.5), at(0.99), micros.back(),
                static_cast<unsigned long long>(transport->dropped()));
    if (!stalled) transport->waitUntilIdle(std::chrono::seconds(60));
}

}  // namespace

int main(int argc, char** argv) {
    const int events = argc > 1 ? std::atoi(argv[1]) : 10000;
    run("answering", false, events);
    run("stalled", true, events);
    return 0;
}
