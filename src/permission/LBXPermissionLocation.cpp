#include "permission/LBXPermissionLocation.h"

#include "platform/assertion.h"
#include "platform/permissions.h"

namespace quorvane {
namespace {

std::shared_ptr<platform::LocationServices> services() { return platform::PrivacyServices::current().location; }

bool present(const std::shared_ptr<platform::AppInfo>& info, const char* key) {
    return info && info->objectForInfoDictionaryKey(key).has_value();
}

}  // namespace

bool LBXPermissionLocation::isServicesEnabled() {
    auto location = services();
    return location && location->locationServicesEnabled();
}

bool LBXPermissionLocation::authorized() {
    int status = authorizationStatus();
    return status == platform::LocationStatusAuthorizedAlways || status == platform::LocationStatusAuthorizedWhenInUse;
}

int LBXPermissionLocation::authorizationStatus() {
    auto location = services();
    return location ? location->authorizationStatus() : platform::LocationStatusNotDetermined;
}

void LBXPermissionLocation::authorizeWithCompletion(LBXPermissionCompletion completion) {
    switch (authorizationStatus()) {
    case platform::LocationStatusNotDetermined:
        if (!isServicesEnabled()) {
            if (completion) completion(false, false);
            return;
        }
        sharedManager()->startGps(std::move(completion));
        return;
    case platform::LocationStatusRestricted:
    case platform::LocationStatusDenied:
        if (completion) completion(false, false);
        return;
    case platform::LocationStatusAuthorizedAlways:
    case platform::LocationStatusAuthorizedWhenInUse:
        if (completion) completion(true, false);
        return;
    default: return;
    }
}

std::shared_ptr<LBXPermissionLocation> LBXPermissionLocation::sharedManager() {
    static std::shared_ptr<LBXPermissionLocation> shared = std::make_shared<LBXPermissionLocation>();
    return shared;
}

void LBXPermissionLocation::startGps(LBXPermissionCompletion completion) {
    if (locationManager_) stopGps();
    permissionCompletion_ = std::move(completion);
    auto location = services();
    if (!location) return;
    locationManager_ = location->makeLocationManager();
    locationManager_->setDelegate(weak_from_this());
    locationManager_->setDesiredAccuracy(platform::kLocationAccuracyBestForNavigation);
    if (location->authorizationStatus() == platform::LocationStatusNotDetermined) {
        auto info = platform::PrivacyServices::current().appInfo;
        if (present(info, "NSLocationAlwaysUsageDescription"))
            locationManager_->requestAlwaysAuthorization();
        else if (present(info, "NSLocationWhenInUseUsageDescription"))
            locationManager_->requestWhenInUseAuthorization();
        else
            platform::assertionFailed({"-[LBXPermissionLocation startGps:]", "LBXPermissionLocation", 120,
                                       "To use location services in iOS 8+, your Info.plist must provide a value for "
                                       "either NSLocationWhenInUseUsageDescription or "
                                       "NSLocationAlwaysUsageDescription."});
    }
    locationManager_->startUpdatingLocation();
}

void LBXPermissionLocation::stopGps() {
    if (!locationManager_) return;
    locationManager_->stopUpdatingLocation();
    locationManager_.reset();
}

// Status 0 is what the platform reports while its question is on screen: not a decision.
void LBXPermissionLocation::locationManagerDidChangeAuthorizationStatus(platform::LocationManager&, int status) {
    bool granted;
    if (status == platform::LocationStatusRestricted || status == platform::LocationStatusDenied) granted = false;
    else if (status == platform::LocationStatusAuthorizedAlways || status == platform::LocationStatusAuthorizedWhenInUse)
        granted = true;
    else return;
    stopGps();
    auto completion = std::move(permissionCompletion_);
    permissionCompletion_ = nullptr;
    if (completion) completion(granted, true);
}

}  // namespace quorvane
