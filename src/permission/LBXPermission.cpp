#include "permission/LBXPermission.h"

#include <array>
#include <map>
#include <mutex>

#include "permission/LBXPermissionNet.h"
#include "permission/LBXPermissionKinds.h"
#include "permission/LBXPermissionLocation.h"

namespace quorvane {
namespace {

constexpr std::array<const char*, 10> kClassNames = {
    "LBXPermissionLocation", "LBXPermissionCamera",     "LBXPermissionPhotos", "LBXPermissionContacts",
    "LBXPermissionReminders", "LBXPermissionCalendar",  "LBXPermissionMicrophone", "LBXPermissionHealth",
    "LBXPermissionData",     "LBXPermissionMediaLibrary"};

LBXPermissionClass locationClass() {
    auto cls = LBXPermissionClass::of<LBXPermissionLocation>();
    cls.isServicesEnabled = [] { return LBXPermissionLocation::isServicesEnabled(); };
    return cls;
}

// The cellular-data check keeps its own shared watcher.
LBXPermissionClass dataClass() {
    LBXPermissionClass cls;
    cls.authorizeWithCompletion = [](LBXPermissionCompletion c) {
        LBXPermissionData::sharedManager()->authorizeWithCompletion(std::move(c));
    };
    return cls;
}

struct Registry {
    std::mutex mutex;
    std::map<std::string, LBXPermissionClass> classes{
        {"LBXPermissionLocation", locationClass()},
        {"LBXPermissionCamera", LBXPermissionClass::of<LBXPermissionCamera>()},
        {"LBXPermissionPhotos", LBXPermissionClass::of<LBXPermissionPhotos>()},
        {"LBXPermissionContacts", LBXPermissionClass::of<LBXPermissionContacts>()},
        {"LBXPermissionReminders", LBXPermissionClass::of<LBXPermissionReminders>()},
        {"LBXPermissionCalendar", LBXPermissionClass::of<LBXPermissionCalendar>()},
        {"LBXPermissionMicrophone", LBXPermissionClass::of<LBXPermissionMicrophone>()},
        {"LBXPermissionData", dataClass()},
        {"LBXPermissionMediaLibrary", LBXPermissionClass::of<LBXPermissionMediaLibrary>()},
    };
};

Registry& registry() {
    static Registry instance;
    return instance;
}

std::optional<LBXPermissionClass> classForType(int type) {
    auto name = LBXPermission::classNameForType(type);
    return name ? LBXPermissionRegistry::classNamed(*name) : std::nullopt;
}

}  // namespace

void LBXPermissionRegistry::registerClass(const std::string& name, LBXPermissionClass permissionClass) {
    std::lock_guard lock(registry().mutex);
    registry().classes[name] = std::move(permissionClass);
}

void LBXPermissionRegistry::unregisterClass(const std::string& name) {
    std::lock_guard lock(registry().mutex);
    registry().classes.erase(name);
}

std::optional<LBXPermissionClass> LBXPermissionRegistry::classNamed(const std::string& name) {
    std::lock_guard lock(registry().mutex);
    auto it = registry().classes.find(name);
    if (it == registry().classes.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> LBXPermission::classNameForType(int type) {
    if (type < 0 || type >= static_cast<int>(kClassNames.size())) return std::nullopt;
    return kClassNames[static_cast<std::size_t>(type)];
}

bool LBXPermission::isServicesEnabledWithType(int type) {
    if (type != LBXPermissionTypeLocation) return true;
    auto cls = classForType(type);
    return cls && cls->isServicesEnabled && cls->isServicesEnabled();
}

bool LBXPermission::isDeviceSupportedWithType(int type) {
    if (type != LBXPermissionTypeHealth) return true;
    auto cls = classForType(type);
    return cls && cls->isHealthDataAvailable && cls->isHealthDataAvailable();
}

bool LBXPermission::authorizedWithType(int type) {
    if (type == LBXPermissionTypeDataNetwork) return false;
    auto cls = classForType(type);
    return cls && cls->authorized && cls->authorized();
}

void LBXPermission::authorizeWithType(int type, LBXPermissionCompletion completion) {
    auto cls = classForType(type);
    if (cls && cls->authorizeWithCompletion) cls->authorizeWithCompletion(std::move(completion));
}

}  // namespace quorvane
