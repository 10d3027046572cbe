#pragma once
// System sounds (AudioToolbox): play a sound id, with an optional completion routine per id.
#include <cstdint>
#include <functional>

namespace quorvane::platform {

using SystemSoundID = std::uint32_t;
// The sound id that makes the device vibrate.
inline constexpr SystemSoundID kSystemSoundID_Vibrate = 4095;

class SystemSound {
public:
    using CompletionRoutine = std::function<void(SystemSoundID)>;
    virtual ~SystemSound() = default;
    // Registers (or replaces) the routine called each time a playback of `sound` completes.
    // It runs on the main loop. Returns 0 on success.
    virtual int addCompletion(SystemSoundID sound, CompletionRoutine routine) = 0;
    virtual void removeCompletion(SystemSoundID sound) = 0;
    virtual void play(SystemSoundID sound) = 0;
    virtual void dispose(SystemSoundID sound) = 0;
};

}  // namespace quorvane::platform
