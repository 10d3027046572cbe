#include "platform/headless/headless_audio_session.h"

#include "foundation/notification_center.h"

namespace quorvane::platform::headless {

bool HeadlessAudioSession::setCategory(const std::string& category) {
    std::lock_guard lock(mutex_);
    if (refuses_) return false;
    category_ = category;
    return true;
}

bool HeadlessAudioSession::setActive(bool active, int options) {
    std::lock_guard lock(mutex_);
    if (refuses_) return false;
    active_ = active;
    activations_.push_back({active, options});
    return true;
}

void HeadlessAudioSession::setRefusesCalls(bool refuses) {
    std::lock_guard lock(mutex_);
    refuses_ = refuses;
}

void HeadlessAudioSession::interrupt(int type) {
    foundation::NotificationCenter::defaultCenter().post(AVAudioSessionInterruptionNotification,
                                                         Value{{AVAudioSessionInterruptionTypeKey, type}});
}

std::string HeadlessAudioSession::category() const {
    std::lock_guard lock(mutex_);
    return category_;
}

bool HeadlessAudioSession::isActive() const {
    std::lock_guard lock(mutex_);
    return active_;
}

std::vector<HeadlessAudioSession::Activation> HeadlessAudioSession::activations() const {
    std::lock_guard lock(mutex_);
    return activations_;
}

}  // namespace quorvane::platform::headless
