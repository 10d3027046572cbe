#include "foundation/dispatch.h"
#include "foundation/dispatch_asio.h"

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "foundation/log.h"

namespace quorvane::foundation {
namespace {

// Enough threads that a few tasks blocked in a 2-second retry wait stall nothing else.
constexpr std::size_t kGlobalThreads = 8;

asio::thread_pool& globalPool() {
    static auto* pool = new asio::thread_pool(kGlobalThreads);  // never joined: tasks may run at exit
    return *pool;
}

// A task that throws must not take a pool thread (or the main loop) down with it.
void runGuarded(const Task& task, const std::string& label) {
    try {
        task();
    } catch (const std::exception& e) {
        logLine("dispatch: a task on " + label + " threw: " + e.what());
    } catch (...) {
        logLine("dispatch: a task on " + label + " threw");
    }
}

std::atomic<std::thread::id>& mainThreadId() {
    static std::atomic<std::thread::id> id{};
    return id;
}

class MainQueue : public Queue {
public:
    void async(Task task) override {
        asio::post(mainLoopContext(), [this, task = std::move(task)] { runGuarded(task, label_); });
    }
    const std::string& label() const override { return label_; }

private:
    std::string label_ = "com.apple.main-thread";
};

class GlobalQueue : public Queue {
public:
    void async(Task task) override {
        asio::post(globalPool(), [this, task = std::move(task)] { runGuarded(task, label_); });
    }
    const std::string& label() const override { return label_; }

private:
    std::string label_ = "com.apple.root.default-qos";
};

}  // namespace

// ---- main loop ----

struct MainLoop::Impl {
    asio::io_context io;
};

MainLoop::MainLoop() : impl_(std::make_unique<Impl>()) {}

MainLoop& MainLoop::instance() {
    static auto* loop = new MainLoop();  // never destroyed: pool threads may still post to it at exit
    return *loop;
}

asio::io_context& mainLoopContext() { return MainLoop::instance().impl_->io; }

void MainLoop::run() {
    mainThreadId() = std::this_thread::get_id();
    auto guard = asio::make_work_guard(impl_->io);
    impl_->io.restart();
    impl_->io.run();
}

void MainLoop::stop() { impl_->io.stop(); }

bool MainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    mainThreadId() = std::this_thread::get_id();
    auto guard = asio::make_work_guard(impl_->io);  // so an idle loop waits instead of returning at once
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (done()) return true;
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        if (impl_->io.stopped()) impl_->io.restart();
        auto slice = std::min<std::chrono::steady_clock::duration>(std::chrono::milliseconds(10), deadline - now);
        impl_->io.run_one_for(slice);
    }
}

bool isMainThread() { return mainThreadId().load() == std::this_thread::get_id(); }

namespace dispatch {
Queue& main() {
    static auto* q = new MainQueue();
    return *q;
}
Queue& global() {
    static auto* q = new GlobalQueue();
    return *q;
}
}  // namespace dispatch

// ---- serial and concurrent queues ----

struct SerialQueue::Impl {
    explicit Impl(std::string l) : label(std::move(l)), strand(asio::make_strand(globalPool().get_executor())) {}
    std::string label;
    asio::strand<asio::thread_pool::executor_type> strand;
};

SerialQueue::SerialQueue(std::string label) : impl_(std::make_shared<Impl>(std::move(label))) {}

// Queued tasks hold the strand, so they still run, in order, after the queue object is gone.
SerialQueue::~SerialQueue() = default;

void SerialQueue::async(Task task) {
    asio::post(impl_->strand, [impl = impl_, task = std::move(task)] { runGuarded(task, impl->label); });
}

void SerialQueue::sync(const Task& task) {
    if (isCurrent()) return runGuarded(task, impl_->label);
    std::promise<void> done;
    asio::post(impl_->strand, [&] {
        runGuarded(task, impl_->label);
        done.set_value();
    });
    done.get_future().wait();
}

bool SerialQueue::isCurrent() const { return impl_->strand.running_in_this_thread(); }

const std::string& SerialQueue::label() const { return impl_->label; }

ConcurrentQueue::ConcurrentQueue(std::string label) : label_(std::move(label)) {}

void ConcurrentQueue::async(Task task) {
    asio::post(globalPool(), [label = label_, task = std::move(task)] { runGuarded(task, label); });
}

const std::string& ConcurrentQueue::label() const { return label_; }

// ---- semaphore ----

Semaphore::Semaphore(long value) : value_(value) {}

// Notified under the lock: a waiter cannot return, and destroy the semaphore, before notify_one
// has finished with it.
void Semaphore::signal() {
    std::lock_guard lock(mutex_);
    ++value_;
    cv_.notify_one();
}

void Semaphore::wait() {
    std::unique_lock lock(mutex_);
    cv_.wait(lock, [this] { return value_ > 0; });
    --value_;
}

bool Semaphore::waitFor(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    if (!cv_.wait_for(lock, timeout, [this] { return value_ > 0; })) return false;
    --value_;
    return true;
}

// ---- after ----

namespace {
void scheduleOnPool(double seconds, std::function<void()> fire) {
    if (!(seconds > 0)) return asio::post(globalPool(), std::move(fire));
    seconds = std::min(seconds, 1e9);  // "never" without overflowing the clock
    auto timer = std::make_shared<asio::steady_timer>(globalPool().get_executor());
    timer->expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds)));
    timer->async_wait([timer, fire = std::move(fire)](const asio::error_code&) { fire(); });
}
}  // namespace

void after(double seconds, Queue& queue, Task task) {
    scheduleOnPool(seconds, [&queue, task = std::move(task)]() mutable { queue.async(std::move(task)); });
}

void after(double seconds, std::shared_ptr<Queue> queue, Task task) {
    scheduleOnPool(seconds, [queue = std::move(queue), task = std::move(task)]() mutable { queue->async(std::move(task)); });
}

}  // namespace quorvane::foundation
