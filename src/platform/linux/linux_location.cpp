#include "platform/linux/linux_location.h"

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>

#include "foundation/dispatch.h"

namespace quorvane::platform::linux_impl {
namespace {

std::optional<double> parseNumber(std::string_view text) {
    std::string copy(text);
    char* end = nullptr;
    double value = std::strtod(copy.c_str(), &end);
    if (end == copy.c_str()) return std::nullopt;
    while (*end == ' ' || *end == '\t' || *end == '\n' || *end == '\r') ++end;
    if (*end != '\0') return std::nullopt;
    return value;
}

class ConfiguredLocationManager : public LocationManager, public std::enable_shared_from_this<ConfiguredLocationManager> {
public:
    ConfiguredLocationManager(std::optional<Coordinate> position, int status) : position_(position), status_(status) {}

    void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) override {
        {
            std::lock_guard lock(mutex_);
            delegate_ = std::move(delegate);
        }
        int status = status_;
        post([status](LocationManagerDelegate& d, LocationManager& m) { d.locationManagerDidChangeAuthorizationStatus(m, status); });
    }
    void setDesiredAccuracy(double) override {}
    void requestAlwaysAuthorization() override {}
    void requestWhenInUseAuthorization() override {}
    void startUpdatingLocation() override {
        if (!position_) return;
        std::vector<Location> fix{Location{*position_}};
        post([fix](LocationManagerDelegate& d, LocationManager& m) { d.locationManagerDidUpdateLocations(m, fix); });
    }
    void stopUpdatingLocation() override {}

private:
    void post(std::function<void(LocationManagerDelegate&, LocationManager&)> event) {
        std::weak_ptr<ConfiguredLocationManager> weak = shared_from_this();
        foundation::dispatch::main().async([weak, event = std::move(event)] {
            auto self = weak.lock();
            if (!self) return;
            std::shared_ptr<LocationManagerDelegate> delegate;
            {
                std::lock_guard lock(self->mutex_);
                delegate = self->delegate_.lock();
            }
            if (delegate) event(*delegate, *self);
        });
    }
    std::optional<Coordinate> position_;
    int status_;
    std::mutex mutex_;
    std::weak_ptr<LocationManagerDelegate> delegate_;
};

class UnavailableGeocoder : public Geocoder {
public:
    void reverseGeocodeLocation(
        const Location&, std::function<void(const std::vector<Placemark>&, const std::optional<Error>&)> answer) override {
        foundation::dispatch::main().async([answer = std::move(answer)] {
            answer({}, Error("kCLErrorDomain", 2, "reverse geocoding is not available on this machine"));
        });
    }
};

}  // namespace

std::optional<Coordinate> parseConfiguredPosition(std::string_view text) {
    auto comma = text.find(',');
    if (comma == std::string_view::npos) return std::nullopt;
    auto latitude = parseNumber(text.substr(0, comma));
    auto longitude = parseNumber(text.substr(comma + 1));
    if (!latitude || !longitude) return std::nullopt;
    Coordinate coordinate{*latitude, *longitude};
    if (!coordinateIsValid(coordinate)) return std::nullopt;
    return coordinate;
}

std::optional<Coordinate> configuredPosition(const foundation::EnvironmentLookup& env) {
    if (const char* text = env("QUORVANE_LOCATION")) return parseConfiguredPosition(text);
    if (const char* path = env("QUORVANE_LOCATION_FILE")) {
        std::ifstream file(path);
        std::stringstream content;
        content << file.rdbuf();
        return parseConfiguredPosition(content.str());
    }
    return std::nullopt;
}

LinuxLocationServices::LinuxLocationServices(std::optional<Coordinate> position) : position_(position) {}

int LinuxLocationServices::authorizationStatus() const {
    return position_ ? LocationStatusAuthorizedAlways : LocationStatusDenied;
}

bool LinuxLocationServices::locationServicesEnabled() const { return position_.has_value(); }

std::shared_ptr<LocationManager> LinuxLocationServices::makeLocationManager() {
    return std::make_shared<ConfiguredLocationManager>(position_, authorizationStatus());
}

std::shared_ptr<Geocoder> LinuxLocationServices::makeGeocoder() { return std::make_shared<UnavailableGeocoder>(); }

}  // namespace quorvane::platform::linux_impl
