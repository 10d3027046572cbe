#pragma once
// One position request: a single fix from the platform's location service, converted to GCJ-02 and
// reverse-geocoded into one LocationInfo. Runs on the main thread, where the platform delivers.
#include <functional>
#include <memory>
#include <string>

#include "platform/location.h"

namespace quorvane {

struct LocationInfo {
    bool authorization = true;  // false only in authorizationFailInfo()
    std::string latitude;       // GCJ-02, "%f", or "0"
    std::string longitude;
    std::string address;
    std::string ISOcountryCode, country, province, city, district, street, place;

    // Could not locate: reported as a located answer with zero coordinates.
    static LocationInfo failInfo();
    // Location permission restricted or denied.
    static LocationInfo authorizationFailInfo();
};

inline constexpr const char* kLocationUnknownAddress = "未获取到定位信息";

class LocationTool : public platform::LocationManagerDelegate, public std::enable_shared_from_this<LocationTool> {
public:
    using LocationMonitorInfo = std::function<void(const LocationInfo& info)>;

    // Replaces any pending callback, then starts one fix.
    void getLocationInfo(LocationMonitorInfo callback);
    void startLocationMonitor();

    void locationManagerDidUpdateLocations(platform::LocationManager& manager,
                                           const std::vector<platform::Location>& locations) override;
    void locationManagerDidChangeAuthorizationStatus(platform::LocationManager& manager, int status) override;
    void locationManagerDidFailWithError(platform::LocationManager& manager, const Error& error) override;

    const std::shared_ptr<platform::LocationManager>& locationManager() const { return locationManager_; }
    const LocationMonitorInfo& locationMonitorInfo() const { return locationMonitorInfo_; }

private:
    void geocoded(const platform::Location& converted, const std::string& latitude, const std::string& longitude,
                  const std::vector<platform::Placemark>& placemarks, const std::optional<Error>& error);

    std::shared_ptr<platform::LocationManager> locationManager_;
    std::shared_ptr<platform::Geocoder> geocoder_;
    LocationMonitorInfo locationMonitorInfo_;
};

}  // namespace quorvane
