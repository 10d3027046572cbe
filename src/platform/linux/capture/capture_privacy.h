#pragma once
// Camera and microphone authorisation on a Linux capture device: granted when the configured input
// opens, refused when it does not. A missing device or input counts as restricted, one this process
// may not open (EACCES, EPERM) as denied; both answer (NO, NO), since there is no prompt to show.
// Every other kind is the wrapped authority's.
#include <memory>

#include "platform/permissions.h"

namespace quorvane::platform::linux_capture {

class LinuxMicrophone;
class LinuxCaptureCamera;

// The authorisation status an input's opening result stands for (0: it opened).
int statusForOpenResult(int code);

class CapturePrivacyAuthority : public PrivacyAuthority {
public:
    CapturePrivacyAuthority(std::shared_ptr<PrivacyAuthority> others, std::shared_ptr<LinuxMicrophone> microphone,
                            std::shared_ptr<LinuxCaptureCamera> camera);

    std::optional<int> authorizationStatus(PrivacyKind kind) const override;
    void requestAccess(PrivacyKind kind, std::function<void(bool granted)> answer) override;
    void requestAuthorization(PrivacyKind kind, std::function<void(int status)> answer) override;
    std::uint32_t recordPermission() const override;
    std::shared_ptr<AudioSession> makeAudioSession() override;
    // The authority every other kind goes to.
    std::shared_ptr<PrivacyAuthority> others() const { return others_; }

private:
    std::shared_ptr<PrivacyAuthority> others_;
    std::shared_ptr<LinuxMicrophone> microphone_;
    std::shared_ptr<LinuxCaptureCamera> camera_;
};

}  // namespace quorvane::platform::linux_capture
