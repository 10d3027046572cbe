#include "device/LocationTool.h"

#include <cstdio>

#include "device/DatumConversion.h"
#include "foundation/log.h"
#include "platform/permissions.h"

namespace quorvane {
namespace {

std::string formatF(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

LocationInfo zeroInfo(bool authorization) {
    LocationInfo info;
    info.authorization = authorization;
    info.latitude = "0";
    info.longitude = "0";
    info.address = kLocationUnknownAddress;
    return info;
}

std::string field(const std::optional<std::string>& text) { return text.value_or(""); }

}  // namespace

LocationInfo LocationInfo::failInfo() { return zeroInfo(true); }
LocationInfo LocationInfo::authorizationFailInfo() { return zeroInfo(false); }

void LocationTool::getLocationInfo(LocationMonitorInfo callback) {
    locationMonitorInfo_ = [callback = std::move(callback)](const LocationInfo& info) {
        if (callback) callback(info);
    };
    startLocationMonitor();
}

void LocationTool::startLocationMonitor() {
    auto services = platform::PrivacyServices::current().location;
    if (!services) return;
    locationManager_ = services->makeLocationManager();
    locationManager_->setDelegate(weak_from_this());
    locationManager_->setDesiredAccuracy(platform::kLocationAccuracyBest);
    switch (services->authorizationStatus()) {
    case platform::LocationStatusAuthorizedAlways:
    case platform::LocationStatusAuthorizedWhenInUse: locationManager_->startUpdatingLocation(); break;
    case platform::LocationStatusNotDetermined:
        locationManager_->requestWhenInUseAuthorization();
        locationManager_->startUpdatingLocation();
        break;
    default: break;  // a refusal arrives as an authorisation event
    }
}

// Single shot: the first update stops the manager and leaves it without a delegate.
void LocationTool::locationManagerDidUpdateLocations(platform::LocationManager& manager,
                                                     const std::vector<platform::Location>& locations) {
    manager.stopUpdatingLocation();
    manager.setDelegate({});
    if (locations.empty()) return;
    auto wgs = locations.front().coordinate;
    foundation::logLine("国际坐标WGS-84，经度：" + formatF(wgs.longitude) + "，纬度：" + formatF(wgs.latitude));
    auto gcj = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ({wgs.latitude, wgs.longitude});
    foundation::logLine("国内坐标GCJ-02(国测局02年发布的坐标体系,又称“火星坐标”)，经度：" + formatF(gcj.longitude) +
                        "，纬度：" + formatF(gcj.latitude));
    platform::Location converted{{gcj.latitude, gcj.longitude}};
    auto latitude = formatF(converted.coordinate.latitude), longitude = formatF(converted.coordinate.longitude);
    auto services = platform::PrivacyServices::current().location;
    if (!services) return;
    geocoder_ = services->makeGeocoder();
    std::weak_ptr<LocationTool> weak = weak_from_this();
    geocoder_->reverseGeocodeLocation(converted, [weak, converted, latitude, longitude](
                                                     const std::vector<platform::Placemark>& placemarks,
                                                     const std::optional<Error>& error) {
        if (auto tool = weak.lock()) tool->geocoded(converted, latitude, longitude, placemarks, error);
    });
}

void LocationTool::geocoded(const platform::Location& converted, const std::string& latitude,
                            const std::string& longitude, const std::vector<platform::Placemark>& placemarks,
                            const std::optional<Error>& error) {
    LocationInfo info;
    if (!error && !placemarks.empty()) {
        const auto& mark = placemarks.front();
        info.latitude = latitude;
        info.longitude = longitude;
        info.ISOcountryCode = field(mark.ISOcountryCode);
        info.country = field(mark.country);
        info.province = field(mark.administrativeArea);
        info.city = field(mark.locality);
        info.district = field(mark.subLocality);
        info.street = field(mark.thoroughfare);
        info.place = field(mark.name);
        info.address = info.province + info.city + info.district + info.street + info.place;
    } else {
        foundation::logLine("获取定位信息失败， 失败原因 = " + (error ? error->description : std::string("(null)")));
        if (platform::coordinateIsValid(converted.coordinate)) {
            info = LocationInfo::failInfo();
            info.latitude = formatF(converted.coordinate.latitude);
            info.longitude = formatF(converted.coordinate.longitude);
        } else {
            info = LocationInfo::failInfo();
        }
    }
    if (locationMonitorInfo_) locationMonitorInfo_(info);
}

void LocationTool::locationManagerDidChangeAuthorizationStatus(platform::LocationManager& manager, int status) {
    if (status != platform::LocationStatusRestricted && status != platform::LocationStatusDenied) return;
    manager.stopUpdatingLocation();
    if (locationMonitorInfo_) locationMonitorInfo_(LocationInfo::authorizationFailInfo());
}

void LocationTool::locationManagerDidFailWithError(platform::LocationManager&, const Error& error) {
    foundation::logLine("获取失败：" + error.description);
}

}  // namespace quorvane
