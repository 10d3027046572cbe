// The headless location service: statuses, the user's answer, fixes and geocoder answers are
// scripted; every delegate event is posted to the main loop.
#include "foundation/dispatch.h"
#include "platform/headless/headless_permissions.h"

namespace quorvane::platform::headless {
namespace {

class HeadlessGeocoder : public Geocoder {
public:
    explicit HeadlessGeocoder(std::shared_ptr<HeadlessLocationServices> services) : services_(std::move(services)) {}
    void reverseGeocodeLocation(
        const Location& location,
        std::function<void(const std::vector<Placemark>&, const std::optional<Error>&)> answer) override {
        services_->noteGeocode(location, std::move(answer));
    }
private:
    std::shared_ptr<HeadlessLocationServices> services_;
};

// Posts `event` to the manager's delegate on the main loop, if both still live then.
void postToDelegate(const std::shared_ptr<HeadlessLocationManager>& manager,
                    std::function<void(LocationManagerDelegate&, LocationManager&)> event) {
    std::weak_ptr<HeadlessLocationManager> weak = manager;
    foundation::dispatch::main().async([weak, event = std::move(event)] {
        auto strong = weak.lock();
        if (!strong) return;
        if (auto delegate = strong->delegate()) event(*delegate, *strong);
    });
}

}  // namespace

HeadlessLocationManager::HeadlessLocationManager(std::shared_ptr<HeadlessLocationServices> services)
    : services_(std::move(services)) {}

// Like the platform, a new delegate first hears the current status.
void HeadlessLocationManager::setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) {
    {
        std::lock_guard lock(mutex_);
        delegate_ = std::move(delegate);
    }
    int status = services_->authorizationStatus();
    std::shared_ptr<HeadlessLocationManager> self;
    for (auto& manager : services_->managers())
        if (manager.get() == this) self = manager;
    if (self && !delegate_.expired())
        postToDelegate(self, [status](LocationManagerDelegate& d, LocationManager& m) {
            d.locationManagerDidChangeAuthorizationStatus(m, status);
        });
}

void HeadlessLocationManager::setDesiredAccuracy(double accuracy) { std::lock_guard lock(mutex_); accuracy_ = accuracy; }
void HeadlessLocationManager::requestAlwaysAuthorization() { services_->noteAuthorizationRequest(*this, "always"); }
void HeadlessLocationManager::requestWhenInUseAuthorization() { services_->noteAuthorizationRequest(*this, "whenInUse"); }
void HeadlessLocationManager::startUpdatingLocation() { std::lock_guard lock(mutex_); updating_ = true; }
void HeadlessLocationManager::stopUpdatingLocation() { std::lock_guard lock(mutex_); updating_ = false; }
std::shared_ptr<LocationManagerDelegate> HeadlessLocationManager::delegate() const { std::lock_guard lock(mutex_); return delegate_.lock(); }
double HeadlessLocationManager::desiredAccuracy() const { std::lock_guard lock(mutex_); return accuracy_; }
bool HeadlessLocationManager::updating() const { std::lock_guard lock(mutex_); return updating_; }

void HeadlessLocationServices::setAuthorizationStatus(int status) { std::lock_guard lock(mutex_); status_ = status; }
void HeadlessLocationServices::setServicesEnabled(bool enabled) { std::lock_guard lock(mutex_); enabled_ = enabled; }
void HeadlessLocationServices::scriptAuthorizationAnswer(int status) { std::lock_guard lock(mutex_); answer_ = status; }
void HeadlessLocationServices::scriptPlacemarks(std::vector<Placemark> placemarks) {
    std::lock_guard lock(mutex_);
    placemarks_ = std::move(placemarks);
    geocoderError_.reset();
}
void HeadlessLocationServices::scriptGeocoderError(Error error) { std::lock_guard lock(mutex_); geocoderError_ = std::move(error); }
int HeadlessLocationServices::authorizationStatus() const { std::lock_guard lock(mutex_); return status_; }
bool HeadlessLocationServices::locationServicesEnabled() const { std::lock_guard lock(mutex_); return enabled_; }
std::vector<std::string> HeadlessLocationServices::authorizationRequests() const { std::lock_guard lock(mutex_); return requests_; }
std::vector<Location> HeadlessLocationServices::geocoded() const { std::lock_guard lock(mutex_); return geocoded_; }

std::vector<std::shared_ptr<HeadlessLocationManager>> HeadlessLocationServices::managers() const {
    std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<HeadlessLocationManager>> live;
    for (auto& weak : managers_)
        if (auto manager = weak.lock()) live.push_back(manager);
    return live;
}

std::shared_ptr<LocationManager> HeadlessLocationServices::makeLocationManager() {
    auto manager = std::make_shared<HeadlessLocationManager>(shared_from_this());
    std::lock_guard lock(mutex_);
    std::erase_if(managers_, [](const auto& weak) { return weak.expired(); });
    managers_.push_back(manager);
    return manager;
}

std::shared_ptr<Geocoder> HeadlessLocationServices::makeGeocoder() {
    return std::make_shared<HeadlessGeocoder>(shared_from_this());
}

void HeadlessLocationServices::changeAuthorization(int status) {
    setAuthorizationStatus(status);
    for (auto& manager : managers())
        postToDelegate(manager, [status](LocationManagerDelegate& d, LocationManager& m) {
            d.locationManagerDidChangeAuthorizationStatus(m, status);
        });
}

void HeadlessLocationServices::deliverLocations(std::vector<Location> locations) {
    for (auto& manager : managers())
        if (manager->updating())
            postToDelegate(manager, [locations](LocationManagerDelegate& d, LocationManager& m) {
                d.locationManagerDidUpdateLocations(m, locations);
            });
}

void HeadlessLocationServices::deliverError(Error error) {
    for (auto& manager : managers())
        if (manager->updating())
            postToDelegate(manager, [error](LocationManagerDelegate& d, LocationManager& m) {
                d.locationManagerDidFailWithError(m, error);
            });
}

void HeadlessLocationServices::noteAuthorizationRequest(HeadlessLocationManager&, const std::string& kind) {
    std::optional<int> answer;
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(kind);
        answer = answer_;
    }
    if (answer) changeAuthorization(*answer);
}

void HeadlessLocationServices::noteGeocode(
    const Location& location, std::function<void(const std::vector<Placemark>&, const std::optional<Error>&)> answer) {
    std::vector<Placemark> placemarks;
    std::optional<Error> error;
    {
        std::lock_guard lock(mutex_);
        geocoded_.push_back(location);
        placemarks = placemarks_;
        error = geocoderError_;
    }
    foundation::dispatch::main().async([answer = std::move(answer), placemarks, error] { answer(placemarks, error); });
}

}  // namespace quorvane::platform::headless
