#include "platform/headless/headless_microphone.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quorvane::platform::headless {
namespace {

constexpr std::int64_t kNanos = 1'000'000'000;
constexpr std::int64_t kShortestInterval = 1'000'000;  // 1 ms: keeps a zero interval from spinning

std::int64_t toNanos(double seconds) { return static_cast<std::int64_t>(std::llround(seconds * kNanos)); }

}  // namespace

class HeadlessMicrophone::Stream : public CaptureStream {
public:
    explicit Stream(Sink sink) : sink_(std::move(sink)) {}
    void start() override {
        std::lock_guard lock(mutex_);
        running_ = true;
    }
    void stop() override {
        std::lock_guard lock(mutex_);
        running_ = false;
    }
    bool running() const {
        std::lock_guard lock(mutex_);
        return running_;
    }
    void deliver(const std::int16_t* frames, std::size_t count) {
        if (running()) sink_(frames, count);
    }

private:
    Sink sink_;
    mutable std::mutex mutex_;
    bool running_ = false;
};

class HeadlessMicrophone::Timer : public RecordingTimer {
public:
    Timer(std::int64_t due, std::int64_t interval, std::uint64_t sequence, std::function<void()> tick)
        : due(due), interval(interval), sequence(sequence), tick(std::move(tick)) {}
    void invalidate() override {
        std::lock_guard lock(mutex_);
        valid_ = false;
    }
    bool isValid() const override {
        std::lock_guard lock(mutex_);
        return valid_;
    }
    std::int64_t due;
    const std::int64_t interval;
    const std::uint64_t sequence;
    const std::function<void()> tick;

private:
    mutable std::mutex mutex_;
    bool valid_ = true;
};

HeadlessMicrophone::HeadlessMicrophone(PcmFormat format) : format_(format) {}

void HeadlessMicrophone::setTone(double hertz, double amplitude) {
    std::lock_guard lock(mutex_);
    hertz_ = hertz;
    amplitude_ = std::clamp(amplitude, 0.0, 1.0);
}

void HeadlessMicrophone::queuePcm(const std::vector<std::int16_t>& interleaved) {
    std::lock_guard lock(mutex_);
    queued_.insert(queued_.end(), interleaved.begin(), interleaved.end());
}

void HeadlessMicrophone::setUnavailable(bool unavailable) {
    std::lock_guard lock(mutex_);
    unavailable_ = unavailable;
}

PcmFormat HeadlessMicrophone::format() const { return format_; }

std::shared_ptr<CaptureStream> HeadlessMicrophone::openCapture(Sink sink) {
    std::lock_guard lock(mutex_);
    if (unavailable_ || !sink) return nullptr;
    auto stream = std::make_shared<Stream>(std::move(sink));
    streams_.push_back(stream);
    return stream;
}

double HeadlessMicrophone::now() const {
    std::lock_guard lock(mutex_);
    return static_cast<double>(now_) / kNanos;
}

std::shared_ptr<RecordingTimer> HeadlessMicrophone::scheduleRepeating(double firstAfter, double interval,
                                                                      std::function<void()> tick) {
    std::lock_guard lock(mutex_);
    auto timer = std::make_shared<Timer>(now_ + std::max<std::int64_t>(0, toNanos(firstAfter)),
                                         std::max(kShortestInterval, toNanos(interval)), timerSequence_++,
                                         std::move(tick));
    timers_.push_back(timer);
    return timer;
}

void HeadlessMicrophone::advance(double seconds) {
    std::int64_t target;
    {
        std::lock_guard lock(mutex_);
        target = now_ + std::max<std::int64_t>(0, toNanos(seconds));
    }
    while (auto timer = nextDueBy(target)) {
        deliverUntil(timer->due);
        {
            std::lock_guard lock(mutex_);
            now_ = timer->due;
            timer->due += timer->interval;
        }
        timer->tick();
    }
    deliverUntil(target);
    std::lock_guard lock(mutex_);
    now_ = target;
    prune();
}

int HeadlessMicrophone::runningCaptures() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count_if(streams_.begin(), streams_.end(), [](const auto& weak) {
        auto stream = weak.lock();
        return stream && stream->running();
    }));
}

int HeadlessMicrophone::liveTimers() const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(
        std::count_if(timers_.begin(), timers_.end(), [](const auto& timer) { return timer->isValid(); }));
}

// The earliest valid timer due no later than `limit`; ties go to the one scheduled first.
std::shared_ptr<HeadlessMicrophone::Timer> HeadlessMicrophone::nextDueBy(std::int64_t limit) const {
    std::lock_guard lock(mutex_);
    std::shared_ptr<Timer> best;
    for (const auto& timer : timers_) {
        if (!timer->isValid() || timer->due > limit) continue;
        if (!best || timer->due < best->due || (timer->due == best->due && timer->sequence < best->sequence))
            best = timer;
    }
    return best;
}

// Produces the frames of [now, time) once and hands them to every running capture, a second at most
// per call so buffers stay small.
void HeadlessMicrophone::deliverUntil(std::int64_t time) {
    for (;;) {
        std::vector<std::int16_t> buffer;
        std::vector<std::shared_ptr<Stream>> streams;
        std::size_t frames;
        {
            std::lock_guard lock(mutex_);
            std::int64_t endFrame = time / kNanos * format_.sampleRate +
                                    (time % kNanos) * format_.sampleRate / kNanos;
            if (endFrame <= nextFrame_) return;
            frames = static_cast<std::size_t>(std::min<std::int64_t>(endFrame - nextFrame_, format_.sampleRate));
            buffer.resize(frames * static_cast<std::size_t>(format_.channels));
            fill(buffer.data(), frames);
            for (const auto& weak : streams_)
                if (auto stream = weak.lock()) streams.push_back(stream);
        }
        for (const auto& stream : streams) stream->deliver(buffer.data(), frames);
    }
}

// Called with the mutex held: queued PCM first, then the tone.
void HeadlessMicrophone::fill(std::int16_t* out, std::size_t frames) {
    const auto channels = static_cast<std::size_t>(format_.channels);
    for (std::size_t frame = 0; frame < frames; ++frame, ++nextFrame_) {
        double phase = 2 * std::numbers::pi * hertz_ * static_cast<double>(nextFrame_) / format_.sampleRate;
        auto toneSample = static_cast<std::int16_t>(std::lround(amplitude_ * 32767 * std::sin(phase)));
        for (std::size_t channel = 0; channel < channels; ++channel) {
            if (!queued_.empty()) {
                out[frame * channels + channel] = queued_.front();
                queued_.pop_front();
            } else {
                out[frame * channels + channel] = toneSample;
            }
        }
    }
}

// Called with the mutex held: forgets invalid timers and captures nobody holds.
void HeadlessMicrophone::prune() {
    std::erase_if(timers_, [](const auto& timer) { return !timer->isValid(); });
    std::erase_if(streams_, [](const auto& weak) { return weak.expired(); });
}

}  // namespace quorvane::platform::headless
