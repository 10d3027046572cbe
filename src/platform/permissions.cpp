#include "platform/permissions.h"

#include <cmath>

#include "foundation/dispatch.h"

namespace quorvane::platform {

bool coordinateIsValid(const Coordinate& c) {
    return std::isfinite(c.latitude) && std::isfinite(c.longitude) && c.latitude >= -90 && c.latitude <= 90 &&
           c.longitude >= -180 && c.longitude <= 180;
}

DictionaryAppInfo::DictionaryAppInfo(Value dictionary) : dictionary_(std::move(dictionary)) {}

std::optional<Value> DictionaryAppInfo::objectForInfoDictionaryKey(const std::string& key) const {
    std::lock_guard lock(mutex_);
    if (!dictionary_.is_object()) return std::nullopt;
    auto it = dictionary_.find(key);
    if (it == dictionary_.end() || it->is_null()) return std::nullopt;
    return *it;
}

void DictionaryAppInfo::setInfoDictionary(Value dictionary) {
    std::lock_guard lock(mutex_);
    dictionary_ = std::move(dictionary);
}

namespace {

// No privacy facility: every kind is restricted and every request refused, from a worker thread as
// a platform answers.
class RefusingAudioSession : public AudioSession {
public:
    bool setCategory(const std::string&) override { return false; }
    void requestRecordPermission(std::function<void(bool)> answer) override {
        foundation::dispatch::global().async([answer = std::move(answer)] { answer(false); });
    }
};

class RestrictedAuthority : public PrivacyAuthority {
public:
    std::optional<int> authorizationStatus(PrivacyKind) const override { return StatusRestricted; }
    void requestAccess(PrivacyKind, std::function<void(bool)> answer) override {
        foundation::dispatch::global().async([answer = std::move(answer)] { answer(false); });
    }
    void requestAuthorization(PrivacyKind, std::function<void(int)> answer) override {
        foundation::dispatch::global().async([answer = std::move(answer)] { answer(StatusRestricted); });
    }
    std::uint32_t recordPermission() const override { return kRecordPermissionDenied; }
    std::shared_ptr<AudioSession> makeAudioSession() override { return std::make_shared<RefusingAudioSession>(); }
};

// The permission checks read a missing status as "no such check" and go ahead, so the authority is
// never left empty: without one, everything is restricted.
PrivacyServices withAuthority(PrivacyServices services) {
    if (!services.authority) services.authority = std::make_shared<RestrictedAuthority>();
    return services;
}

std::mutex& installedMutex() {
    static std::mutex mutex;
    return mutex;
}

PrivacyServices& installed() {
    static PrivacyServices services = withAuthority({});
    return services;
}

}  // namespace

PrivacyServices PrivacyServices::current() {
    std::lock_guard lock(installedMutex());
    return installed();
}

void PrivacyServices::setCurrent(PrivacyServices services) {
    std::lock_guard lock(installedMutex());
    installed() = withAuthority(std::move(services));
}

}  // namespace quorvane::platform
