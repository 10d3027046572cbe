#pragma once
// The location service and the geocoder (CLLocationManager, CLGeocoder). Events reach the
// delegate on the main loop.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/error.h"

namespace quorvane::platform {

// Location authorisation statuses; 3 is "always", 4 "when in use".
enum LocationAuthorizationStatus {
    LocationStatusNotDetermined = 0,
    LocationStatusRestricted = 1,
    LocationStatusDenied = 2,
    LocationStatusAuthorizedAlways = 3,
    LocationStatusAuthorizedWhenInUse = 4,
};

inline constexpr double kLocationAccuracyBestForNavigation = -2;
inline constexpr double kLocationAccuracyBest = -1;

struct Coordinate {
    double latitude = 0;
    double longitude = 0;
};

// Latitude within ±90 and longitude within ±180 (CLLocationCoordinate2DIsValid).
bool coordinateIsValid(const Coordinate& coordinate);

struct Location {
    Coordinate coordinate;
};

class LocationManager;

class LocationManagerDelegate {
public:
    virtual ~LocationManagerDelegate() = default;
    virtual void locationManagerDidUpdateLocations(LocationManager&, const std::vector<Location>&) {}
    virtual void locationManagerDidChangeAuthorizationStatus(LocationManager&, int) {}
    virtual void locationManagerDidFailWithError(LocationManager&, const Error&) {}
};

class LocationManager {
public:
    virtual ~LocationManager() = default;
    // Held weakly, as the platform does.
    virtual void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) = 0;
    virtual void setDesiredAccuracy(double accuracy) = 0;
    virtual void requestAlwaysAuthorization() = 0;
    virtual void requestWhenInUseAuthorization() = 0;
    virtual void startUpdatingLocation() = 0;
    virtual void stopUpdatingLocation() = 0;
};

struct Placemark {
    std::optional<std::string> administrativeArea, locality, subLocality, thoroughfare, ISOcountryCode, country, name;
};

class Geocoder {
public:
    virtual ~Geocoder() = default;
    // Answers on the main loop with placemarks or an error.
    virtual void reverseGeocodeLocation(
        const Location& location,
        std::function<void(const std::vector<Placemark>& placemarks, const std::optional<Error>& error)> answer) = 0;
};

class LocationServices {
public:
    virtual ~LocationServices() = default;
    virtual int authorizationStatus() const = 0;
    virtual bool locationServicesEnabled() const = 0;
    virtual std::shared_ptr<LocationManager> makeLocationManager() = 0;
    virtual std::shared_ptr<Geocoder> makeGeocoder() = 0;
};

}  // namespace quorvane::platform
