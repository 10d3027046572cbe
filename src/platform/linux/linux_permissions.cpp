#include "platform/linux/linux_permissions.h"

#include <unistd.h>

#include "foundation/dispatch.h"
#include "platform/linux/linux_location.h"

namespace quorvane::platform::linux_impl {
namespace {

bool matches(const std::string& name, const std::string& prefix, const std::string& suffix) {
    return name.starts_with(prefix) && name.size() >= prefix.size() + suffix.size() && name.ends_with(suffix);
}

class LinuxAudioSession : public AudioSession {
public:
    explicit LinuxAudioSession(std::filesystem::path devRoot) : devRoot_(std::move(devRoot)) {}
    bool setCategory(const std::string&) override { return true; }
    void requestRecordPermission(std::function<void(bool)> answer) override {
        bool granted = deviceNodeStatus(devRoot_ / "snd", "pcm", "c") == StatusAuthorized;
        foundation::dispatch::global().async([answer = std::move(answer), granted] { answer(granted); });
    }
private:
    std::filesystem::path devRoot_;
};

}  // namespace

int deviceNodeStatus(const std::filesystem::path& directory, const std::string& prefix, const std::string& suffix) {
    std::error_code error;
    bool present = false;
    for (auto it = std::filesystem::directory_iterator(directory, error); !error && it != std::filesystem::directory_iterator();
         it.increment(error)) {
        if (!matches(it->path().filename().string(), prefix, suffix)) continue;
        present = true;
        if (::access(it->path().c_str(), R_OK | W_OK) == 0) return StatusAuthorized;
    }
    return present ? StatusDenied : StatusRestricted;
}

LinuxPrivacyAuthority::LinuxPrivacyAuthority(std::filesystem::path devRoot) : devRoot_(std::move(devRoot)) {}

std::optional<int> LinuxPrivacyAuthority::authorizationStatus(PrivacyKind kind) const {
    switch (kind) {
    case PrivacyKind::Camera: return deviceNodeStatus(devRoot_, "video");
    case PrivacyKind::Photos:
    case PrivacyKind::MediaLibrary: return StatusAuthorized;
    default: return StatusRestricted;
    }
}

void LinuxPrivacyAuthority::requestAccess(PrivacyKind kind, std::function<void(bool)> answer) {
    bool granted = authorizationStatus(kind) == StatusAuthorized;
    foundation::dispatch::global().async([answer = std::move(answer), granted] { answer(granted); });
}

void LinuxPrivacyAuthority::requestAuthorization(PrivacyKind kind, std::function<void(int)> answer) {
    int status = authorizationStatus(kind).value_or(StatusRestricted);
    foundation::dispatch::global().async([answer = std::move(answer), status] { answer(status); });
}

std::uint32_t LinuxPrivacyAuthority::recordPermission() const {
    return deviceNodeStatus(devRoot_ / "snd", "pcm", "c") == StatusAuthorized ? kRecordPermissionGranted
                                                                              : kRecordPermissionDenied;
}

std::shared_ptr<AudioSession> LinuxPrivacyAuthority::makeAudioSession() {
    return std::make_shared<LinuxAudioSession>(devRoot_);
}

PrivacyServices installLinuxPrivacy(std::optional<Coordinate> position) {
    PrivacyServices services{std::make_shared<LinuxPrivacyAuthority>(), std::make_shared<LinuxLocationServices>(position),
                             std::make_shared<DictionaryAppInfo>()};
    PrivacyServices::setCurrent(services);
    return services;
}

}  // namespace quorvane::platform::linux_impl
