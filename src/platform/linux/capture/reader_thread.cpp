#include "platform/linux/capture/reader_thread.h"

namespace quorvane::platform::linux_capture {

ReaderThread::~ReaderThread() { stop(); }

void ReaderThread::start(std::function<void()> body, std::function<void()> interrupt) {
    stop();
    {
        std::lock_guard lock(mutex_);
        stopping_ = false;
        origin_ = std::chrono::steady_clock::now();
        interrupt_ = std::move(interrupt);
    }
    thread_ = std::thread(std::move(body));
}

void ReaderThread::stop() {
    if (!thread_.joinable()) return;
    std::function<void()> interrupt;
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        interrupt = interrupt_;
    }
    wake_.notify_all();
    if (interrupt) interrupt();
    thread_.join();
}

bool ReaderThread::stopping() const {
    std::lock_guard lock(mutex_);
    return stopping_;
}

bool ReaderThread::waitUntil(double offset) {
    std::unique_lock lock(mutex_);
    auto due = origin_ + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                             std::chrono::duration<double>(offset));
    return !wake_.wait_until(lock, due, [this] { return stopping_; });
}

}  // namespace quorvane::platform::linux_capture
