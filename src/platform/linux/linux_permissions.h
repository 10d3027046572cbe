#pragma once
// Privacy answers on Linux. Camera and microphone come from the device nodes (/dev/video*,
// /dev/snd/pcm*c): none present → restricted, present but none readable and writable by this
// process → denied, otherwise authorised. There is no prompt: a request answers the same, from a
// worker thread. Photos and the media library are plain files (authorised); there is no contacts,
// calendar or reminders store (restricted). The position comes from configuration
// (linux_location.h).
#include <filesystem>
#include <optional>
#include <string>

#include "platform/location.h"
#include "platform/permissions.h"

namespace quorvane::platform::linux_impl {

// The status of device nodes in `directory` whose names start with `prefix` (and, when given, end
// with `suffix`).
int deviceNodeStatus(const std::filesystem::path& directory, const std::string& prefix, const std::string& suffix = {});

class LinuxPrivacyAuthority : public PrivacyAuthority {
public:
    explicit LinuxPrivacyAuthority(std::filesystem::path devRoot = "/dev");
    std::optional<int> authorizationStatus(PrivacyKind kind) const override;
    void requestAccess(PrivacyKind kind, std::function<void(bool granted)> answer) override;
    void requestAuthorization(PrivacyKind kind, std::function<void(int status)> answer) override;
    std::uint32_t recordPermission() const override;
    std::shared_ptr<AudioSession> makeAudioSession() override;
private:
    std::filesystem::path devRoot_;
};

// The Linux privacy set with an empty information dictionary, installed as PrivacyServices::current();
// location is served at `position` (none: location services off).
PrivacyServices installLinuxPrivacy(std::optional<Coordinate> position);

}  // namespace quorvane::platform::linux_impl
