#include "platform/microphone.h"

#include <mutex>

#include "platform/headless/headless_microphone.h"

namespace quorvane::platform {
namespace {

std::mutex gMutex;
std::shared_ptr<headless::HeadlessMicrophone> gDefault;
std::shared_ptr<Microphone> gMicrophone;
std::shared_ptr<RecordingClock> gClock;

// The default device: one headless microphone that is also the clock, so both stay in step.
std::shared_ptr<headless::HeadlessMicrophone> defaultDevice() {
    if (!gDefault) gDefault = std::make_shared<headless::HeadlessMicrophone>();
    return gDefault;
}

}  // namespace

std::shared_ptr<Microphone> Microphone::current() {
    std::lock_guard lock(gMutex);
    if (gMicrophone) return gMicrophone;
    return defaultDevice();
}

std::shared_ptr<Microphone> Microphone::setCurrent(std::shared_ptr<Microphone> microphone) {
    std::lock_guard lock(gMutex);
    auto previous = gMicrophone ? std::move(gMicrophone) : std::shared_ptr<Microphone>(defaultDevice());
    gMicrophone = std::move(microphone);
    return previous;
}

std::shared_ptr<RecordingClock> RecordingClock::current() {
    std::lock_guard lock(gMutex);
    if (gClock) return gClock;
    return defaultDevice();
}

std::shared_ptr<RecordingClock> RecordingClock::setCurrent(std::shared_ptr<RecordingClock> clock) {
    std::lock_guard lock(gMutex);
    auto previous = gClock ? std::move(gClock) : std::shared_ptr<RecordingClock>(defaultDevice());
    gClock = std::move(clock);
    return previous;
}

}  // namespace quorvane::platform
