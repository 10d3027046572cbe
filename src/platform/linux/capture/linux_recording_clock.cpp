#include "platform/linux/capture/linux_recording_clock.h"

#include <asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>

#include "foundation/dispatch.h"
#include "foundation/dispatch_asio.h"

namespace quorvane::platform::linux_capture {
namespace {

using Clock = std::chrono::steady_clock;

Clock::duration toDuration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

class Timer : public RecordingTimer, public std::enable_shared_from_this<Timer> {
public:
    Timer(Clock::duration interval, std::function<void()> tick)
        : timer_(foundation::mainLoopContext()), interval_(interval), tick_(std::move(tick)) {}

    void arm(Clock::time_point due) {
        timer_.expires_at(due);
        // The pending wait holds the timer: it ticks on until invalidated.
        timer_.async_wait([self = shared_from_this()](const std::error_code& error) {
            if (error || !self->valid_) return;
            self->arm(self->timer_.expiry() + self->interval_);
            self->tick_();
        });
    }
    void invalidate() override {
        if (!valid_.exchange(false)) return;
        // The wait is cancelled on the main thread, which owns it.
        foundation::dispatch::main().async([self = shared_from_this()] { self->timer_.cancel(); });
    }
    bool isValid() const override { return valid_; }

private:
    asio::steady_timer timer_;
    const Clock::duration interval_;
    const std::function<void()> tick_;
    std::atomic<bool> valid_{true};
};

}  // namespace

LinuxRecordingClock::LinuxRecordingClock() : origin_(Clock::now()) {}

double LinuxRecordingClock::now() const {
    return std::chrono::duration<double>(Clock::now() - origin_).count();
}

std::shared_ptr<RecordingTimer> LinuxRecordingClock::scheduleRepeating(double firstAfter, double interval,
                                                                       std::function<void()> tick) {
    // A zero interval would spin the main loop.
    auto timer = std::make_shared<Timer>(toDuration(std::max(interval, 0.001)), std::move(tick));
    timer->arm(Clock::now() + toDuration(std::max(firstAfter, 0.0)));
    return timer;
}

}  // namespace quorvane::platform::linux_capture
