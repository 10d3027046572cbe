#pragma once
// The device's privacy authorisations (AVCaptureDevice, PHPhotoLibrary, CNContactStore, EKEventStore,
// MPMediaLibrary, AVAudioSession, CLLocationManager) and the application's information dictionary.
// Installed as one replaceable set, like Platform, by a platform family (headless, Linux); scripted
// in tests.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/value.h"
#include "platform/location.h"

namespace quorvane::platform {

// The protected facilities whose status the privacy checks read.
enum class PrivacyKind { Camera, Photos, Contacts, Events, Reminders, MediaLibrary };

// Authorisation statuses as the platform reports them.
enum AuthorizationStatus { StatusNotDetermined = 0, StatusRestricted = 1, StatusDenied = 2, StatusAuthorized = 3 };

// The audio session's four-character record permission values.
constexpr std::uint32_t fourCharCode(const char (&text)[5]) {
    return (std::uint32_t(std::uint8_t(text[0])) << 24) | (std::uint32_t(std::uint8_t(text[1])) << 16) |
           (std::uint32_t(std::uint8_t(text[2])) << 8) | std::uint32_t(std::uint8_t(text[3]));
}
inline constexpr std::uint32_t kRecordPermissionUndetermined = fourCharCode("undt");
inline constexpr std::uint32_t kRecordPermissionDenied = fourCharCode("deny");
inline constexpr std::uint32_t kRecordPermissionGranted = fourCharCode("grnt");

// One audio session object (a fresh one per request).
class AudioSession {
public:
    virtual ~AudioSession() = default;
    // False when the category was refused.
    virtual bool setCategory(const std::string& category) = 0;
    // Asks the user; the answer may arrive on any thread.
    virtual void requestRecordPermission(std::function<void(bool granted)> answer) = 0;
};

class PrivacyAuthority {
public:
    virtual ~PrivacyAuthority() = default;
    // The status of `kind`; nullopt when the platform has no status query for it.
    virtual std::optional<int> authorizationStatus(PrivacyKind kind) const = 0;
    // Camera, contacts, events and reminders: asks the user, answers granted or not.
    virtual void requestAccess(PrivacyKind kind, std::function<void(bool granted)> answer) = 0;
    // Photos and media library: asks the user, answers the new status.
    virtual void requestAuthorization(PrivacyKind kind, std::function<void(int status)> answer) = 0;
    // The audio session's record permission (kRecordPermission...).
    virtual std::uint32_t recordPermission() const = 0;
    virtual std::shared_ptr<AudioSession> makeAudioSession() = 0;
};

// The main bundle's information dictionary (objectForInfoDictionaryKey:).
class AppInfo {
public:
    virtual ~AppInfo() = default;
    // The value at `key`; nullopt when absent.
    virtual std::optional<Value> objectForInfoDictionaryKey(const std::string& key) const = 0;
};

// A dictionary held in memory; hosts and tests set it.
class DictionaryAppInfo : public AppInfo {
public:
    explicit DictionaryAppInfo(Value dictionary = Value::object());
    std::optional<Value> objectForInfoDictionaryKey(const std::string& key) const override;
    void setInfoDictionary(Value dictionary);
private:
    mutable std::mutex mutex_;
    Value dictionary_;
};

struct PrivacyServices {
    std::shared_ptr<PrivacyAuthority> authority;
    std::shared_ptr<LocationServices> location;
    std::shared_ptr<AppInfo> appInfo;

    // A copy of the installed services; safe from any thread. Until a family installs a set, and
    // wherever an installed set leaves it empty, the authority restricts every kind; location and
    // appInfo stay null (no location service, no information dictionary).
    static PrivacyServices current();
    static void setCurrent(PrivacyServices services);
};

}  // namespace quorvane::platform
