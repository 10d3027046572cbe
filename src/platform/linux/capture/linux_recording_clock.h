#pragma once
// The recording clock of a real device: seconds on the steady clock, timers on the main loop. A
// timer keeps its own schedule (each tick is due one interval after the previous one was due), so a
// late tick does not push the later ones back; it lives until invalidated, as a run loop keeps its
// timers.
#include <chrono>

#include "platform/microphone.h"

namespace quorvane::platform::linux_capture {

class LinuxRecordingClock : public RecordingClock {
public:
    LinuxRecordingClock();
    double now() const override;
    // Main thread only, like the timers it makes.
    std::shared_ptr<RecordingTimer> scheduleRepeating(double firstAfter, double interval,
                                                      std::function<void()> tick) override;

private:
    const std::chrono::steady_clock::time_point origin_;
};

}  // namespace quorvane::platform::linux_capture
