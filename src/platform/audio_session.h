#pragma once
// The application's shared audio session (AVAudioSession.sharedInstance): its category, its
// activation, and the interruption announcements it posts on the default notification centre.
#include <memory>
#include <string>

namespace quorvane::platform {

inline constexpr const char* AVAudioSessionCategoryRecord = "AVAudioSessionCategoryRecord";
inline constexpr const char* AVAudioSessionInterruptionNotification = "AVAudioSessionInterruptionNotification";
// The notification's user-information key: 1 when an interruption began, 0 when it ended.
inline constexpr const char* AVAudioSessionInterruptionTypeKey = "AVAudioSessionInterruptionTypeKey";
enum AudioSessionInterruptionType { AudioSessionInterruptionTypeEnded = 0, AudioSessionInterruptionTypeBegan = 1 };
// setActive's option: tell other audio applications when this one deactivates.
inline constexpr int AVAudioSessionSetActiveOptionNotifyOthersOnDeactivation = 1;

class SharedAudioSession {
public:
    virtual ~SharedAudioSession() = default;
    // False when the category was refused.
    virtual bool setCategory(const std::string& category) = 0;
    // Activates (true) or deactivates (false) the session with the option bits.
    virtual bool setActive(bool active, int options) = 0;

    // The installed session; one that refuses everything until a platform family installs one.
    // Never null. Safe from any thread.
    static std::shared_ptr<SharedAudioSession> current();
    // Installs `session` (nullptr restores the refusing one); returns the previous one.
    static std::shared_ptr<SharedAudioSession> setCurrent(std::shared_ptr<SharedAudioSession> session);
};

}  // namespace quorvane::platform
