#pragma once
// The position on Linux comes from configuration the host reads: the environment variable
// QUORVANE_LOCATION, or the file named by QUORVANE_LOCATION_FILE, holding "latitude,longitude" in
// WGS-84 degrees (the library reads no environment itself: the host passes its lookup). With a
// position configured, location is authorised and every start delivers that one fix; without one,
// location services are off and authorisation is denied. There is no offline reverse geocoder: it
// answers an error, so callers fall back to coordinates only.
#include <optional>
#include <string_view>

#include "foundation/host_paths.h"
#include "platform/location.h"

namespace quorvane::platform::linux_impl {

// "lat,lon" (spaces allowed around each number); nullopt when malformed or out of range.
std::optional<Coordinate> parseConfiguredPosition(std::string_view text);
// The position from the environment `env` looks up (variable first, then file), if any.
std::optional<Coordinate> configuredPosition(const foundation::EnvironmentLookup& env);

class LinuxLocationServices : public LocationServices {
public:
    explicit LinuxLocationServices(std::optional<Coordinate> position);
    int authorizationStatus() const override;
    bool locationServicesEnabled() const override;
    std::shared_ptr<LocationManager> makeLocationManager() override;
    std::shared_ptr<Geocoder> makeGeocoder() override;
private:
    std::optional<Coordinate> position_;
};

}  // namespace quorvane::platform::linux_impl
