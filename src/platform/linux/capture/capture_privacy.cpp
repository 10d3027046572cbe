#include "platform/linux/capture/capture_privacy.h"

#include <cerrno>

extern "C" {
#include <libavutil/error.h>
}

#include "foundation/dispatch.h"
#include "platform/linux/capture/linux_capture_camera.h"
#include "platform/linux/capture/linux_microphone.h"

namespace quorvane::platform::linux_capture {
namespace {

bool microphoneOpens(const LinuxMicrophone& microphone) { return !microphone.probe(); }

// No prompt on Linux: the answer is the device's, given from a worker thread as a platform would.
class CaptureAudioSession : public AudioSession {
public:
    explicit CaptureAudioSession(std::shared_ptr<LinuxMicrophone> microphone) : microphone_(std::move(microphone)) {}
    bool setCategory(const std::string&) override { return true; }
    void requestRecordPermission(std::function<void(bool)> answer) override {
        bool granted = microphoneOpens(*microphone_);
        foundation::dispatch::global().async([answer = std::move(answer), granted] { answer(granted); });
    }

private:
    std::shared_ptr<LinuxMicrophone> microphone_;
};

}  // namespace

int statusForOpenResult(int code) {
    if (code >= 0) return StatusAuthorized;
    if (code == AVERROR(EACCES) || code == AVERROR(EPERM)) return StatusDenied;
    return StatusRestricted;
}

CapturePrivacyAuthority::CapturePrivacyAuthority(std::shared_ptr<PrivacyAuthority> others,
                                                 std::shared_ptr<LinuxMicrophone> microphone,
                                                 std::shared_ptr<LinuxCaptureCamera> camera)
    : others_(std::move(others)), microphone_(std::move(microphone)), camera_(std::move(camera)) {}

std::optional<int> CapturePrivacyAuthority::authorizationStatus(PrivacyKind kind) const {
    if (kind != PrivacyKind::Camera) return others_->authorizationStatus(kind);
    auto failure = camera_->probe();
    return statusForOpenResult(failure ? failure->code : 0);
}

void CapturePrivacyAuthority::requestAccess(PrivacyKind kind, std::function<void(bool)> answer) {
    if (kind != PrivacyKind::Camera) return others_->requestAccess(kind, std::move(answer));
    bool granted = authorizationStatus(kind) == StatusAuthorized;
    foundation::dispatch::global().async([answer = std::move(answer), granted] { answer(granted); });
}

void CapturePrivacyAuthority::requestAuthorization(PrivacyKind kind, std::function<void(int)> answer) {
    others_->requestAuthorization(kind, std::move(answer));
}

std::uint32_t CapturePrivacyAuthority::recordPermission() const {
    return microphoneOpens(*microphone_) ? kRecordPermissionGranted : kRecordPermissionDenied;
}

std::shared_ptr<AudioSession> CapturePrivacyAuthority::makeAudioSession() {
    return std::make_shared<CaptureAudioSession>(microphone_);
}

}  // namespace quorvane::platform::linux_capture
