#pragma once
// Headless system sounds: counts plays and, for ids with a completion routine, reports each
// playback complete on the main loop after a scripted delay, as a real short sound would.
#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "platform/system_sound.h"

namespace quorvane::platform::headless {

class HeadlessSystemSound : public SystemSound, public std::enable_shared_from_this<HeadlessSystemSound> {
public:
    int addCompletion(SystemSoundID sound, CompletionRoutine routine) override;
    void removeCompletion(SystemSoundID sound) override;
    void play(SystemSoundID sound) override;
    void dispose(SystemSoundID sound) override;

    // How long a playback lasts before its completion routine runs (default 0.02 s).
    void setPlaybackSeconds(double seconds);
    int plays(SystemSoundID sound) const;
    int registrations(SystemSoundID sound) const;
    int disposals(SystemSoundID sound) const;
    bool hasCompletion(SystemSoundID sound) const;
    // No playback is still running.
    bool idle() const;
private:
    void playbackEnded(SystemSoundID sound);
    mutable std::mutex mutex_;
    std::map<SystemSoundID, CompletionRoutine> routines_;
    std::map<SystemSoundID, int> plays_, registrations_, disposals_;
    double playbackSeconds_ = 0.02;
    int running_ = 0;
};

}  // namespace quorvane::platform::headless
