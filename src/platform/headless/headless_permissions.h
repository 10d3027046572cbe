#pragma once
// A headless privacy set: scripted authorisation statuses and user answers, a scripted location
// service and geocoder, and an in-memory information dictionary. Answers to prompts may be given on
// the caller's thread or on a worker thread, as real platforms do.
#include <map>
#include <mutex>
#include <vector>

#include "platform/permissions.h"

namespace quorvane::platform::headless {

// Where a prompt's answer is delivered from.
enum class AnswerOn { CallerThread, WorkerThread };

class HeadlessPrivacyAuthority : public PrivacyAuthority, public std::enable_shared_from_this<HeadlessPrivacyAuthority> {
public:
    // nullopt: the platform lacks the status query for `kind`.
    void setStatus(PrivacyKind kind, std::optional<int> status);
    void setRecordPermission(std::uint32_t permission);
    // The user's answer to the next prompts for `kind` (granted → status 3, refused → 2). Unscripted
    // prompts stay on screen until answerPending().
    void scriptAnswer(PrivacyKind kind, bool granted, AnswerOn on = AnswerOn::WorkerThread);
    // Photos and media library: the status the prompt ends in (e.g. a limited-access 4).
    void scriptStatusAnswer(PrivacyKind kind, int status, AnswerOn on = AnswerOn::WorkerThread);
    void scriptRecordAnswer(bool granted, AnswerOn on = AnswerOn::WorkerThread);
    // Answers every prompt still on screen for `kind`, on the calling thread.
    void answerPending(PrivacyKind kind, bool granted);
    void answerPendingRecord(bool granted);
    int prompts(PrivacyKind kind) const;
    int recordPrompts() const;
    std::vector<std::string> audioCategories() const;

    std::optional<int> authorizationStatus(PrivacyKind kind) const override;
    void requestAccess(PrivacyKind kind, std::function<void(bool granted)> answer) override;
    void requestAuthorization(PrivacyKind kind, std::function<void(int status)> answer) override;
    std::uint32_t recordPermission() const override;
    std::shared_ptr<AudioSession> makeAudioSession() override;

    void requestRecord(std::function<void(bool granted)> answer);
    void noteAudioCategory(const std::string& category);

private:
    struct Script {
        int status;
        AnswerOn on;
    };
    void prompt(int key, std::function<void(int status)> answer);
    void settle(int key, int status, std::function<void(int)> answer, AnswerOn on);

    mutable std::mutex mutex_;
    std::map<int, std::optional<int>> statuses_;  // keyed by kind; the microphone under its own key
    std::map<int, Script> scripts_;
    std::map<int, std::vector<std::function<void(int)>>> pending_;
    std::map<int, int> prompts_;
    std::vector<std::string> categories_;
};

class HeadlessLocationServices;

class HeadlessLocationManager : public LocationManager {
public:
    explicit HeadlessLocationManager(std::shared_ptr<HeadlessLocationServices> services);
    void setDelegate(std::weak_ptr<LocationManagerDelegate> delegate) override;
    void setDesiredAccuracy(double accuracy) override;
    void requestAlwaysAuthorization() override;
    void requestWhenInUseAuthorization() override;
    void startUpdatingLocation() override;
    void stopUpdatingLocation() override;

    std::shared_ptr<LocationManagerDelegate> delegate() const;
    double desiredAccuracy() const;
    bool updating() const;
private:
    std::shared_ptr<HeadlessLocationServices> services_;
    mutable std::mutex mutex_;
    std::weak_ptr<LocationManagerDelegate> delegate_;
    double accuracy_ = 0;
    bool updating_ = false;
};

class HeadlessLocationServices : public LocationServices, public std::enable_shared_from_this<HeadlessLocationServices> {
public:
    void setAuthorizationStatus(int status);
    void setServicesEnabled(bool enabled);
    // The status the user picks when asked (unscripted: the question stays on screen).
    void scriptAuthorizationAnswer(int status);
    // Changes the status and tells every manager's delegate, on the main loop.
    void changeAuthorization(int status);
    // Sends fixes / an error to every updating manager's delegate, on the main loop.
    void deliverLocations(std::vector<Location> locations);
    void deliverError(Error error);
    void scriptPlacemarks(std::vector<Placemark> placemarks);
    void scriptGeocoderError(Error error);

    // "always" / "whenInUse", in the order asked.
    std::vector<std::string> authorizationRequests() const;
    std::vector<Location> geocoded() const;
    std::vector<std::shared_ptr<HeadlessLocationManager>> managers() const;

    int authorizationStatus() const override;
    bool locationServicesEnabled() const override;
    std::shared_ptr<LocationManager> makeLocationManager() override;
    std::shared_ptr<Geocoder> makeGeocoder() override;

    void noteAuthorizationRequest(HeadlessLocationManager& manager, const std::string& kind);
    void noteGeocode(const Location& location,
                     std::function<void(const std::vector<Placemark>&, const std::optional<Error>&)> answer);
private:
    mutable std::mutex mutex_;
    int status_ = LocationStatusNotDetermined;
    bool enabled_ = true;
    std::optional<int> answer_;
    std::vector<std::string> requests_;
    std::vector<std::weak_ptr<HeadlessLocationManager>> managers_;
    std::vector<Placemark> placemarks_;
    std::optional<Error> geocoderError_;
    std::vector<Location> geocoded_;
};

struct HeadlessPrivacy {
    std::shared_ptr<HeadlessPrivacyAuthority> authority;
    std::shared_ptr<HeadlessLocationServices> location;
    std::shared_ptr<DictionaryAppInfo> appInfo;

    PrivacyServices services() const;
};

HeadlessPrivacy makeHeadlessPrivacy();
// Makes a fresh headless privacy set and installs it as PrivacyServices::current().
HeadlessPrivacy installHeadlessPrivacy();

}  // namespace quorvane::platform::headless
