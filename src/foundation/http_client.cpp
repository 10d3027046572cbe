// The HTTP client: one curl multi handle driven by one thread, completions on a worker pool.
#include "foundation/http_client.h"

#include <asio/post.hpp>

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "foundation/http_transfer.h"

namespace quorvane::foundation {
namespace {

using detail::Transfer;

// Owns the multi handle (so connections are kept alive and reused across requests) and the
// thread that drives it. Nothing but that thread touches the multi handle, except wake-ups.
class Core : public std::enable_shared_from_this<Core> {
public:
    explicit Core(const HttpClientOptions& options);
    ~Core();
    void start() {
        if (multi_) thread_ = std::thread([this] { loop(); });
    }
    void submit(const std::shared_ptr<Transfer>& t);
    void cancel(const std::shared_ptr<Transfer>& t);
    void shutdown();
    detail::Strand newStrand() { return asio::make_strand(pool_->get_executor()); }

private:
    void loop();
    bool drainCommands();
    void collectFinished();
    void add(const std::shared_ptr<Transfer>& t);
    void remove(CURL* easy);

    std::shared_ptr<asio::thread_pool> pool_;
    curl::Multi multi_;
    std::thread thread_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<Transfer>> toAdd_;
    std::vector<std::shared_ptr<Transfer>> toCancel_;
    bool stopping_ = false;
    std::unordered_map<CURL*, std::shared_ptr<Transfer>> active_;  // curl thread only
};

Error cancelledError() { return Error(kHttpErrorDomain, kHttpErrorCancelled, "cancelled"); }

Core::Core(const HttpClientOptions& options)
    : pool_(std::make_shared<asio::thread_pool>(static_cast<std::size_t>(std::max(1, options.workerThreads)))) {
    curl::ensureGlobalInit();
    multi_.reset(curl_multi_init());
    if (!multi_) return;
    curl_multi_setopt(multi_.get(), CURLMOPT_MAX_HOST_CONNECTIONS, options.maxConnectionsPerHost);
    curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, std::max(16L, options.maxConnectionsPerHost * 4));
}

Core::~Core() { shutdown(); }

void Core::submit(const std::shared_ptr<Transfer>& t) {
    {
        std::lock_guard lock(mutex_);
        if (!stopping_ && multi_) {
            toAdd_.push_back(t);
            curl_multi_wakeup(multi_.get());
            return;
        }
    }
    t->finishWith(multi_ ? cancelledError() : curl::makeError("curl_multi_init", CURLE_FAILED_INIT));
}

void Core::cancel(const std::shared_ptr<Transfer>& t) {
    std::lock_guard lock(mutex_);
    if (stopping_ || !multi_) return;
    toCancel_.push_back(t);
    curl_multi_wakeup(multi_.get());
}

void Core::shutdown() {
    {
        std::lock_guard lock(mutex_);
        if (stopping_ && !thread_.joinable()) return;
        stopping_ = true;
        if (multi_) curl_multi_wakeup(multi_.get());
    }
    if (thread_.joinable()) thread_.join();
    // Everything has been handed to the pool; wait for those completions to run. When the last
    // owner lets go from inside one of them, the pool cannot join itself: a helper thread does.
    if (detail::currentWorkerOwner() == this) {
        std::thread([pool = pool_] { pool->join(); }).detach();
    } else {
        pool_->join();
    }
}

void Core::loop() {
    while (drainCommands()) {
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        collectFinished();
        curl_multi_poll(multi_.get(), nullptr, 0, 1000, nullptr);
    }
    // Stopping: whatever is still running or queued ends as cancelled, exactly once.
    while (!active_.empty()) {
        auto t = active_.begin()->second;
        remove(t->easy());
        t->finishWith(cancelledError());
    }
    for (auto& t : toAdd_) t->finishWith(cancelledError());
    toAdd_.clear();
    toCancel_.clear();
}

bool Core::drainCommands() {
    std::vector<std::shared_ptr<Transfer>> adds, cancels;
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return false;
        adds.swap(toAdd_);
        cancels.swap(toCancel_);
    }
    for (auto& t : adds) add(t);
    for (auto& t : cancels) {
        CURL* easy = t->easy();
        if (!easy || !active_.count(easy)) continue;  // already finished
        remove(easy);
        t->finishWith(cancelledError());
    }
    return true;
}

void Core::add(const std::shared_ptr<Transfer>& t) {
    if (*t->cancelled) return t->finishWith(cancelledError());
    CURLMcode mc = curl_multi_add_handle(multi_.get(), t->easy());
    if (mc != CURLM_OK) return t->finishWith(curl::makeMultiError("curl_multi_add_handle", mc));
    active_[t->easy()] = t;
}

void Core::remove(CURL* easy) {
    curl_multi_remove_handle(multi_.get(), easy);
    active_.erase(easy);
}

void Core::collectFinished() {
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(multi_.get(), &left)) {
        if (msg->msg != CURLMSG_DONE) continue;
        CURL* easy = msg->easy_handle;
        CURLcode code = msg->data.result;
        auto it = active_.find(easy);
        if (it == active_.end()) continue;
        auto t = it->second;
        remove(easy);
        t->finish(code);
    }
}

class Task : public HttpTask {
public:
    Task(std::weak_ptr<Core> core, const std::shared_ptr<Transfer>& transfer)
        : core_(std::move(core)), transfer_(transfer), cancelled_(transfer->cancelled) {}
    void cancel() override {
        if (cancelled_->exchange(true)) return;
        auto core = core_.lock();
        auto transfer = transfer_.lock();
        if (core && transfer) core->cancel(transfer);
    }
    bool isCancelled() const override { return *cancelled_; }

private:
    std::weak_ptr<Core> core_;
    std::weak_ptr<Transfer> transfer_;
    std::shared_ptr<std::atomic<bool>> cancelled_;
};

// The requests of one client whose completion has not yet returned.
struct Activity {
    std::mutex mutex;
    std::condition_variable idle;
    std::size_t running = 0;

    void begin() {
        std::lock_guard lock(mutex);
        ++running;
    }
    void end() {
        std::lock_guard lock(mutex);
        if (--running == 0) idle.notify_all();
    }
};

}  // namespace

struct HttpClient::Impl {
    std::shared_ptr<Core> core;
    std::shared_ptr<detail::SendRate> sendRate = std::make_shared<detail::SendRate>();
    std::shared_ptr<Activity> activity = std::make_shared<Activity>();
};

HttpClient::HttpClient(HttpClientOptions options) : impl_(std::make_unique<Impl>()) {
    impl_->sendRate->limit = options.sendRateLimit;
    impl_->core = std::make_shared<Core>(options);
    impl_->core->start();
}

HttpClient::~HttpClient() { impl_->core->shutdown(); }

std::shared_ptr<HttpClient> HttpClient::shared() {
    // Never destroyed: completions may still run while the process exits.
    static auto* client = new std::shared_ptr<HttpClient>(std::make_shared<HttpClient>(sharedOptions()));
    return *client;
}

HttpClientOptions HttpClient::sharedOptions() { return HttpClientOptions{8, 8}; }

void HttpClient::setSendRateLimit(std::uint64_t bytesPerSecond) { impl_->sendRate->limit = bytesPerSecond; }
std::uint64_t HttpClient::sendRateLimit() const { return impl_->sendRate->limit.load(); }

std::shared_ptr<HttpTask> HttpClient::send(HttpRequest request, HttpCompletion completion) {
    const std::shared_ptr<Core>& core = impl_->core;
    impl_->activity->begin();
    completion = [activity = impl_->activity, completion = std::move(completion)](HttpResult result) {
        struct Ended {  // counted even when the completion throws
            Activity& activity;
            ~Ended() { activity.end(); }
        } ended{*activity};
        if (completion) completion(std::move(result));
    };
    auto t = std::make_shared<Transfer>(std::move(request), std::move(completion), core->newStrand(), core.get(),
                                        impl_->sendRate);
    if (auto error = t->prepare()) {
        t->finishWith(std::move(*error));
    } else {
        core->submit(t);
    }
    return std::make_shared<Task>(core, t);
}

HttpResult HttpClient::sendSync(HttpRequest request) {
    auto promise = std::make_shared<std::promise<HttpResult>>();
    auto future = promise->get_future();
    send(std::move(request), [promise](HttpResult r) { promise->set_value(std::move(r)); });
    return future.get();
}

bool HttpClient::waitUntilIdle(std::chrono::milliseconds timeout) const {
    auto& activity = *impl_->activity;
    std::unique_lock lock(activity.mutex);
    return activity.idle.wait_for(lock, timeout, [&] { return activity.running == 0; });
}

std::optional<std::string> HttpResponse::header(std::string_view name) const {
    for (const auto& [n, v] : headers)
        if (n.size() == name.size() &&
            std::equal(n.begin(), n.end(), name.begin(),
                       [](char a, char b) { return std::tolower((unsigned char)a) == std::tolower((unsigned char)b); }))
            return v;
    return std::nullopt;
}

std::string urlEncode(std::string_view text) {
    if (text.empty()) return {};  // curl reads a length of 0 as "up to the NUL", past this view
    curl::ensureGlobalInit();
    char* out = curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size()));
    if (!out) return {};
    std::string s(out);
    curl_free(out);
    return s;
}

std::optional<std::string> urlDecode(std::string_view text) {
    // curl passes malformed escapes through; a caller asking to decode wants them refused.
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '%' && (i + 2 >= text.size() || !std::isxdigit((unsigned char)text[i + 1]) ||
                               !std::isxdigit((unsigned char)text[i + 2])))
            return std::nullopt;
    curl::ensureGlobalInit();
    int length = 0;
    char* out = curl_easy_unescape(nullptr, text.data(), static_cast<int>(text.size()), &length);
    if (!out) return std::nullopt;
    std::string s(out, static_cast<std::size_t>(length));
    curl_free(out);
    return s;
}

}  // namespace quorvane::foundation
