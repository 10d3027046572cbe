#include "platform/headless/headless_system_sound.h"

#include "foundation/dispatch.h"

namespace quorvane::platform::headless {

int HeadlessSystemSound::addCompletion(SystemSoundID sound, CompletionRoutine routine) {
    std::lock_guard lock(mutex_);
    routines_[sound] = std::move(routine);
    ++registrations_[sound];
    return 0;
}

void HeadlessSystemSound::removeCompletion(SystemSoundID sound) {
    std::lock_guard lock(mutex_);
    routines_.erase(sound);
}

void HeadlessSystemSound::play(SystemSoundID sound) {
    double seconds;
    {
        std::lock_guard lock(mutex_);
        ++plays_[sound];
        ++running_;
        seconds = playbackSeconds_;
    }
    std::weak_ptr<HeadlessSystemSound> weak = weak_from_this();
    foundation::after(seconds, foundation::dispatch::main(), [weak, sound] {
        if (auto self = weak.lock()) self->playbackEnded(sound);
    });
}

void HeadlessSystemSound::playbackEnded(SystemSoundID sound) {
    CompletionRoutine routine;
    {
        std::lock_guard lock(mutex_);
        --running_;
        if (auto it = routines_.find(sound); it != routines_.end()) routine = it->second;
    }
    if (routine) routine(sound);
}

void HeadlessSystemSound::dispose(SystemSoundID sound) {
    std::lock_guard lock(mutex_);
    ++disposals_[sound];
}

void HeadlessSystemSound::setPlaybackSeconds(double seconds) {
    std::lock_guard lock(mutex_);
    playbackSeconds_ = seconds;
}

int HeadlessSystemSound::plays(SystemSoundID sound) const {
    std::lock_guard lock(mutex_);
    auto it = plays_.find(sound);
    return it == plays_.end() ? 0 : it->second;
}

int HeadlessSystemSound::registrations(SystemSoundID sound) const {
    std::lock_guard lock(mutex_);
    auto it = registrations_.find(sound);
    return it == registrations_.end() ? 0 : it->second;
}

int HeadlessSystemSound::disposals(SystemSoundID sound) const {
    std::lock_guard lock(mutex_);
    auto it = disposals_.find(sound);
    return it == disposals_.end() ? 0 : it->second;
}

bool HeadlessSystemSound::hasCompletion(SystemSoundID sound) const {
    std::lock_guard lock(mutex_);
    return routines_.count(sound) > 0;
}

bool HeadlessSystemSound::idle() const {
    std::lock_guard lock(mutex_);
    return running_ == 0;
}

}  // namespace quorvane::platform::headless
