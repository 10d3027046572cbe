#pragma once
// The single entry point of the permission checks: a permission type number is served by the class
// registered under that kind's name. A kind whose class is not registered answers "not granted"
// and never calls back, so a host can add a kind (health) by registering its class.
#include <functional>
#include <optional>
#include <string>

namespace quorvane {

// (granted, firstTime): firstTime is true when the answer comes from a prompt just shown.
using LBXPermissionCompletion = std::function<void(bool granted, bool firstTime)>;

enum LBXPermissionType {
    LBXPermissionTypeLocation = 0,
    LBXPermissionTypeCamera = 1,
    LBXPermissionTypePhotos = 2,
    LBXPermissionTypeContacts = 3,
    LBXPermissionTypeReminders = 4,
    LBXPermissionTypeCalendar = 5,
    LBXPermissionTypeMicrophone = 6,
    LBXPermissionTypeHealth = 7,
    LBXPermissionTypeDataNetwork = 8,
    LBXPermissionTypeMediaLibrary = 9,
};

// The class-level operations of one per-kind class; empty members are operations it lacks.
struct LBXPermissionClass {
    std::function<bool()> authorized;
    std::function<int()> authorizationStatus;
    std::function<void(LBXPermissionCompletion)> authorizeWithCompletion;
    std::function<bool()> isServicesEnabled;
    std::function<bool()> isHealthDataAvailable;

    // The operations of a class with static authorized / authorizationStatus / authorizeWithCompletion.
    template <class Kind>
    static LBXPermissionClass of() {
        return LBXPermissionClass{[] { return Kind::authorized(); }, [] { return int(Kind::authorizationStatus()); },
                                  [](LBXPermissionCompletion c) { Kind::authorizeWithCompletion(std::move(c)); }, {}, {}};
    }
};

// Classes by name (the run-time class lookup). The system's own kinds are registered on first use.
class LBXPermissionRegistry {
public:
    static void registerClass(const std::string& name, LBXPermissionClass permissionClass);
    static void unregisterClass(const std::string& name);
    static std::optional<LBXPermissionClass> classNamed(const std::string& name);
};

class LBXPermission {
public:
    // Type 0: whether location services are on; every other type: true.
    static bool isServicesEnabledWithType(int type);
    // Type 7: whether health data is available (its class decides); every other type: true.
    static bool isDeviceSupportedWithType(int type);
    // Types 0-7 and 9; type 8 and unknown types answer false.
    static bool authorizedWithType(int type);
    // Types 0-9; an unknown type, or a kind without a class, never calls back.
    static void authorizeWithType(int type, LBXPermissionCompletion completion);
    // The class name serving `type`, or nullopt for an unknown type.
    static std::optional<std::string> classNameForType(int type);
};

}  // namespace quorvane
