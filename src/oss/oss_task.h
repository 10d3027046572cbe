#pragma once
// An asynchronous outcome: a result or an error, set once. Continuations run on the thread that
// completes the task (the operation's serial queue, on the shared worker pool), or at once on the
// caller's thread when the task has already ended.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "foundation/error.h"
#include "oss/oss_error.h"

namespace quorvane::oss {

template <class T>
class OSSTask {
public:
    using Ptr = std::shared_ptr<OSSTask<T>>;
    using Block = std::function<void(const OSSTask<T>& task)>;

    static Ptr create() { return Ptr(new OSSTask<T>()); }
    static Ptr taskWithResult(std::shared_ptr<T> result) {
        auto t = create();
        t->setResult(std::move(result));
        return t;
    }
    static Ptr taskWithError(Error error) {
        auto t = create();
        t->setError(std::move(error));
        return t;
    }

    bool isCompleted() const {
        std::lock_guard lock(mutex_);
        return completed_;
    }
    // Ended with the cancelled code (5).
    bool isCancelled() const {
        std::lock_guard lock(mutex_);
        return completed_ && error_ && isCancelledError(*error_);
    }
    bool isFaulted() const {
        std::lock_guard lock(mutex_);
        return completed_ && error_.has_value();
    }
    // Valid once completed.
    std::optional<Error> error() const {
        std::lock_guard lock(mutex_);
        return error_;
    }
    std::shared_ptr<T> result() const {
        std::lock_guard lock(mutex_);
        return result_;
    }

    void waitUntilFinished() const {
        std::unique_lock lock(mutex_);
        cv_.wait(lock, [&] { return completed_; });
    }
    // false when the time passed first.
    bool waitFor(std::chrono::milliseconds timeout) const {
        std::unique_lock lock(mutex_);
        return cv_.wait_for(lock, timeout, [&] { return completed_; });
    }

    // Runs `block` once when the task ends; returns a task that ends after the block has run, with
    // the same outcome, so continuations chain and waitUntilFinished() covers the block too.
    Ptr continueWithBlock(Block block) {
        auto next = create();
        auto run = [block = std::move(block), next](const OSSTask<T>& self) {
            if (block) block(self);
            next->complete(self.result(), self.error());
        };
        std::unique_lock lock(mutex_);
        if (!completed_) {
            continuations_.push_back(std::move(run));
            return next;
        }
        lock.unlock();
        run(*this);
        return next;
    }

    // Producer side. The first call wins; later calls return false.
    bool setResult(std::shared_ptr<T> result) { return complete(std::move(result), std::nullopt); }
    bool setError(Error error) { return complete(nullptr, std::move(error)); }

private:
    OSSTask() = default;

    bool complete(std::shared_ptr<T> result, std::optional<Error> error) {
        std::vector<Block> continuations;
        {
            std::lock_guard lock(mutex_);
            if (completed_) return false;
            completed_ = true;
            result_ = std::move(result);
            error_ = std::move(error);
            continuations.swap(continuations_);
        }
        cv_.notify_all();
        for (auto& c : continuations) c(*this);
        return true;
    }

    mutable std::mutex mutex_;
    mutable std::condition_variable cv_;
    bool completed_ = false;
    std::shared_ptr<T> result_;
    std::optional<Error> error_;
    std::vector<Block> continuations_;
};

}  // namespace quorvane::oss
