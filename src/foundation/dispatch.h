#pragma once
// The main loop and dispatch queues, on Asio. The host runs the main loop on its main thread;
// the library never starts one of its own.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>

namespace asio {
class io_context;
}  // namespace asio

namespace quorvane::foundation {

using Task = std::function<void()>;

// Anything that runs tasks: the main queue, a serial queue, a concurrent queue.
class Queue {
public:
    virtual ~Queue() = default;
    virtual void async(Task task) = 0;
    virtual const std::string& label() const = 0;
};

// The main thread's loop. The thread that calls run()/runUntil() is the main thread while it runs.
class MainLoop {
public:
    static MainLoop& instance();
    // Runs until stop() is called.
    void run();
    void stop();
    // Runs posted work until `done` holds (checked after every handler and at least every 10 ms)
    // or the timeout passes. Returns whether `done` held. For tests and the command-line host.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
private:
    friend asio::io_context& mainLoopContext();
    MainLoop();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

bool isMainThread();

namespace dispatch {
Queue& main();             // posts to MainLoop::instance()
Queue& global();           // the shared worker pool (concurrent)
}  // namespace dispatch

// A serial queue: tasks run one after another, in order, on the shared worker pool (an Asio strand).
class SerialQueue : public Queue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue() override;
    void async(Task task) override;
    // Runs `task` on the queue and returns when it has run (dispatch_sync); at once, in place, when
    // called from a task of this queue. Never call it from a thread a task of this queue waits on.
    void sync(const Task& task);
    // Runs `f` as sync does and returns its result. A task that throws is logged and dropped like any
    // other, and the result is then a value-initialised one.
    template <class F>
    auto syncResult(F&& f) -> std::invoke_result_t<F&> {
        using R = std::invoke_result_t<F&>;
        if constexpr (std::is_void_v<R>) {
            sync([&] { f(); });
        } else {
            std::optional<R> result;
            sync([&] { result.emplace(f()); });
            return result ? std::move(*result) : R{};
        }
    }
    // Whether the calling thread is running a task of this queue.
    bool isCurrent() const;
    const std::string& label() const override;
private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

// A concurrent queue: tasks may run at the same time, on the shared worker pool.
class ConcurrentQueue : public Queue {
public:
    explicit ConcurrentQueue(std::string label);
    void async(Task task) override;
    const std::string& label() const override;
private:
    std::string label_;
};

// A counting semaphore (dispatch_semaphore).
class Semaphore {
public:
    explicit Semaphore(long value = 0);
    void signal();
    void wait();
    // Returns false on timeout.
    bool waitFor(std::chrono::milliseconds timeout);
private:
    std::mutex mutex_;
    std::condition_variable cv_;
    long value_;
};

// Runs `task` once on `queue` after `seconds` (dispatch_after). The queue must outlive the delay,
// or be one of the process-wide queues.
void after(double seconds, Queue& queue, Task task);
// Same, keeping a shared queue alive until the task has run.
void after(double seconds, std::shared_ptr<Queue> queue, Task task);

}  // namespace quorvane::foundation
