#include "platform/microphone.h"

#include <atomic>
#include <chrono>
#include <mutex>

namespace quorvane::platform {
namespace {

// A device without audio input: no capture opens.
class UnavailableMicrophone : public Microphone {
public:
    PcmFormat format() const override { return {}; }
    std::shared_ptr<CaptureStream> openCapture(Sink) override { return nullptr; }
};

// Recording timers only run while a capture does, and none can start without a microphone: the
// built-in clock tells the time but its timers never tick.
class IdleTimer : public RecordingTimer {
public:
    void invalidate() override { valid_ = false; }
    bool isValid() const override { return valid_; }
private:
    std::atomic<bool> valid_{true};
};

class IdleClock : public RecordingClock {
public:
    double now() const override {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - origin_).count();
    }
    std::shared_ptr<RecordingTimer> scheduleRepeating(double, double, std::function<void()>) override {
        return std::make_shared<IdleTimer>();
    }
private:
    std::chrono::steady_clock::time_point origin_ = std::chrono::steady_clock::now();
};

std::mutex gMutex;
std::shared_ptr<Microphone> gMicrophone;
std::shared_ptr<RecordingClock> gClock;

}  // namespace

std::shared_ptr<Microphone> Microphone::current() {
    std::lock_guard lock(gMutex);
    if (!gMicrophone) gMicrophone = std::make_shared<UnavailableMicrophone>();
    return gMicrophone;
}

std::shared_ptr<Microphone> Microphone::setCurrent(std::shared_ptr<Microphone> microphone) {
    std::lock_guard lock(gMutex);
    auto previous = std::move(gMicrophone);
    gMicrophone = std::move(microphone);
    if (!previous) previous = std::make_shared<UnavailableMicrophone>();
    return previous;
}

std::shared_ptr<RecordingClock> RecordingClock::current() {
    std::lock_guard lock(gMutex);
    if (!gClock) gClock = std::make_shared<IdleClock>();
    return gClock;
}

std::shared_ptr<RecordingClock> RecordingClock::setCurrent(std::shared_ptr<RecordingClock> clock) {
    std::lock_guard lock(gMutex);
    auto previous = std::move(gClock);
    gClock = std::move(clock);
    if (!previous) previous = std::make_shared<IdleClock>();
    return previous;
}

}  // namespace quorvane::platform
