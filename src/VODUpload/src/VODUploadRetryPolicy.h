#pragma once
// How the engine retries a failed upload step: a fixed wait before each retry, and the counter that
// both steps of a file share, held against the bound the host set. The wait runs on a scheduler the
// engine hands in (a timer on its queue), so the policy can be driven by a test without sleeping.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>

namespace quorvane {

class VODUploadRetryPolicy {
public:
    using Scheduler = std::function<void(std::chrono::milliseconds, std::function<void()>)>;
    static constexpr std::chrono::milliseconds kDefaultWait{2000};

    explicit VODUploadRetryPolicy(Scheduler scheduler) : scheduler_(std::move(scheduler)) {}

    enum class Decision { Retry, GiveUp };
    // For an error of the retry class: give up once the counter reached the host's bound (both read
    // as unsigned, so a negative bound never gives up; the caller clears the counter once the file
    // failed), else count one more.
    Decision decide(std::int32_t maxCount) {
        if (static_cast<std::uint32_t>(count_) >= static_cast<std::uint32_t>(maxCount)) return Decision::GiveUp;
        ++count_;
        return Decision::Retry;
    }
    // Runs `retry` after the wait.
    void schedule(std::function<void()> retry) const { scheduler_(wait_, std::move(retry)); }

    // Retries since the step last moved; not zero while a retry is under way.
    std::int32_t count() const { return count_; }
    void setCount(std::int32_t count) { count_ = count; }
    bool retrying() const { return count_ != 0; }
    // The step moved again (a success, or bytes sent after a retry).
    void reset() { count_ = 0; }

    std::chrono::milliseconds wait() const { return wait_; }
    void setWait(std::chrono::milliseconds wait) { wait_ = std::max(wait, std::chrono::milliseconds(0)); }

private:
    Scheduler scheduler_;
    std::int32_t count_ = 0;
    std::chrono::milliseconds wait_ = kDefaultWait;
};

}  // namespace quorvane
