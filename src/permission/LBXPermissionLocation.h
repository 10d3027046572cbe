#pragma once
// The location permission: a shared instance that holds the location manager while the user is
// asked, and the pending callback, answered on the main thread when the user decides.
#include <functional>
#include <memory>
#include <string>

#include "permission/LBXPermission.h"
#include "platform/location.h"

namespace quorvane {

class LBXPermissionLocation : public platform::LocationManagerDelegate,
                              public std::enable_shared_from_this<LBXPermissionLocation> {
public:
    static bool isServicesEnabled();
    // Authorised always (3) or when in use (4).
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
    static std::shared_ptr<LBXPermissionLocation> sharedManager();

    // Replaces any pending callback without calling it, then asks through a fresh manager.
    void startGps(LBXPermissionCompletion completion);
    void stopGps();
    void locationManagerDidChangeAuthorizationStatus(platform::LocationManager& manager, int status) override;

    const std::shared_ptr<platform::LocationManager>& locationManager() const { return locationManager_; }
    const LBXPermissionCompletion& permissionCompletion() const { return permissionCompletion_; }

private:
    std::shared_ptr<platform::LocationManager> locationManager_;
    LBXPermissionCompletion permissionCompletion_;
};

}  // namespace quorvane
