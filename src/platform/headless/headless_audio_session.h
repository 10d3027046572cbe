#pragma once
// A scriptable shared audio session: it records the category and activation calls it receives,
// can be told to refuse them, and posts interruptions when a test scripts them.
#include <mutex>
#include <string>
#include <vector>

#include "platform/audio_session.h"

namespace quorvane::platform::headless {

class HeadlessAudioSession : public SharedAudioSession {
public:
    struct Activation {
        bool active;
        int options;
    };

    bool setCategory(const std::string& category) override;
    bool setActive(bool active, int options) override;

    // Later calls fail (the platform refused them).
    void setRefusesCalls(bool refuses);
    // Posts AVAudioSessionInterruptionNotification with the type, on the calling thread.
    void interrupt(int type);

    std::string category() const;
    bool isActive() const;
    std::vector<Activation> activations() const;

private:
    mutable std::mutex mutex_;
    std::string category_;
    bool active_ = false;
    bool refuses_ = false;
    std::vector<Activation> activations_;
};

}  // namespace quorvane::platform::headless
