#include "platform/permissions.h"

#include <cmath>

#include "platform/headless/headless_permissions.h"

namespace quorvane::platform {

bool coordinateIsValid(const Coordinate& c) {
    return std::isfinite(c.latitude) && std::isfinite(c.longitude) && c.latitude >= -90 && c.latitude <= 90 &&
           c.longitude >= -180 && c.longitude <= 180;
}

DictionaryAppInfo::DictionaryAppInfo(Value dictionary) : dictionary_(std::move(dictionary)) {}

std::optional<Value> DictionaryAppInfo::objectForInfoDictionaryKey(const std::string& key) const {
    std::lock_guard lock(mutex_);
    if (!dictionary_.is_object()) return std::nullopt;
    auto it = dictionary_.find(key);
    if (it == dictionary_.end() || it->is_null()) return std::nullopt;
    return *it;
}

void DictionaryAppInfo::setInfoDictionary(Value dictionary) {
    std::lock_guard lock(mutex_);
    dictionary_ = std::move(dictionary);
}

namespace {

std::mutex& installedMutex() {
    static std::mutex mutex;
    return mutex;
}

PrivacyServices& installed() {
    static PrivacyServices services = headless::makeHeadlessPrivacy().services();
    return services;
}

}  // namespace

PrivacyServices PrivacyServices::current() {
    std::lock_guard lock(installedMutex());
    return installed();
}

void PrivacyServices::setCurrent(PrivacyServices services) {
    std::lock_guard lock(installedMutex());
    installed() = std::move(services);
}

}  // namespace quorvane::platform
