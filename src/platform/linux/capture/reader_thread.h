#pragma once
// The thread that reads one capture input. Inputs that are not devices (a file, a lavfi source, a
// picture) would be read as fast as they decode; the reader paces them to their own timeline, the
// way a device delivers, so one code path serves both. Pacing a device costs nothing: its reads
// already wait for the data.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace quorvane::platform::linux_capture {

class ReaderThread {
public:
    ReaderThread() = default;
    ReaderThread(const ReaderThread&) = delete;
    ReaderThread& operator=(const ReaderThread&) = delete;
    ~ReaderThread();

    // Runs `body` on a new thread; the pacing origin is now. `interrupt` (may be empty) is called by
    // stop() to wake a body blocked in a read.
    void start(std::function<void()> body, std::function<void()> interrupt = {});
    // Asks the body to end and waits for it. Not from the body itself.
    void stop();
    bool stopping() const;
    bool running() const { return thread_.joinable(); }
    // Waits until `offset` seconds after start(); false when stop() came first.
    bool waitUntil(double offset);

private:
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::chrono::steady_clock::time_point origin_;
    std::function<void()> interrupt_;
    std::thread thread_;
};

}  // namespace quorvane::platform::linux_capture
