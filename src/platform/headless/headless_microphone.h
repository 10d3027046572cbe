#pragma once
// A headless microphone on a virtual clock. The test chooses the signal (a sine tone, silence, or
// PCM of its own that plays first) and moves time with advance(): each span's frames go to the
// running captures and the timers due in it fire, in time order, on the calling thread.
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "platform/microphone.h"

namespace quorvane::platform::headless {

class HeadlessMicrophone : public Microphone,
                           public RecordingClock,
                           public std::enable_shared_from_this<HeadlessMicrophone> {
public:
    explicit HeadlessMicrophone(PcmFormat format = {44100, 1});

    // The signal after any queued PCM: a sine of `hertz` at `amplitude` (0..1); 0 Hz is silence.
    void setTone(double hertz, double amplitude = 0.5);
    // Interleaved frames in the microphone's format, played before the tone resumes.
    void queuePcm(const std::vector<std::int16_t>& interleaved);
    // The input can no longer be opened (no capture device).
    void setUnavailable(bool unavailable);
    // Moves the clock forward, delivering frames and firing due timers (also those due right now).
    void advance(double seconds);
    int runningCaptures() const;
    // Timers that are still valid.
    int liveTimers() const;

    PcmFormat format() const override;
    std::shared_ptr<CaptureStream> openCapture(Sink sink) override;
    double now() const override;
    std::shared_ptr<RecordingTimer> scheduleRepeating(double firstAfter, double interval,
                                                      std::function<void()> tick) override;

private:
    class Stream;
    class Timer;
    std::shared_ptr<Timer> nextDueBy(std::int64_t limit) const;
    void deliverUntil(std::int64_t time);
    void fill(std::int16_t* out, std::size_t frames);
    void prune();

    const PcmFormat format_;
    mutable std::mutex mutex_;
    std::int64_t now_ = 0;  // nanoseconds
    std::int64_t nextFrame_ = 0;  // frames produced since the origin
    double hertz_ = 440, amplitude_ = 0.5;
    std::deque<std::int16_t> queued_;
    bool unavailable_ = false;
    std::uint64_t timerSequence_ = 0;
    std::vector<std::weak_ptr<Stream>> streams_;
    std::vector<std::shared_ptr<Timer>> timers_;
};

}  // namespace quorvane::platform::headless
