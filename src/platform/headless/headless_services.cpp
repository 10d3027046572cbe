#include "platform/headless/headless_services.h"

namespace quorvane::platform::headless {

void HeadlessDeviceInfo::setFacts(DeviceFacts facts) { std::lock_guard lock(mutex_); facts_ = std::move(facts); }
DeviceFacts HeadlessDeviceInfo::facts() const { std::lock_guard lock(mutex_); return facts_; }
std::string HeadlessDeviceInfo::systemName() const { return facts().systemName; }
std::string HeadlessDeviceInfo::systemVersion() const { return facts().systemVersion; }
std::string HeadlessDeviceInfo::model() const { return facts().model; }
std::optional<std::string> HeadlessDeviceInfo::identifierForVendor() const { return facts().identifierForVendor; }
ScreenBounds HeadlessDeviceInfo::mainScreenBounds() const { return facts().screen; }

void HeadlessPasteboard::setString(const std::optional<std::string>& text) {
    std::lock_guard lock(mutex_);
    text_ = text;
    ++writes_;
}

std::optional<std::string> HeadlessPasteboard::string() const {
    std::lock_guard lock(mutex_);
    return text_;
}

int HeadlessPasteboard::writes() const {
    std::lock_guard lock(mutex_);
    return writes_;
}

void HeadlessUrlOpener::installScheme(const std::string& scheme) {
    std::lock_guard lock(mutex_);
    schemes_.insert(scheme);
}

bool HeadlessUrlOpener::canOpenURL(const std::string& url) const {
    if (url == kOpenSettingsURLString) return true;
    auto colon = url.find(':');
    if (colon == std::string::npos || colon == 0) return false;
    std::lock_guard lock(mutex_);
    return schemes_.count(url.substr(0, colon)) > 0;
}

void HeadlessUrlOpener::openURL(const std::string& url, const Value& options, std::function<void(bool)> completion) {
    bool opened = canOpenURL(url);
    {
        std::lock_guard lock(mutex_);
        opened_.push_back({url, options, opened});
    }
    if (completion) completion(opened);
}

std::vector<HeadlessUrlOpener::Opened> HeadlessUrlOpener::opened() const {
    std::lock_guard lock(mutex_);
    return opened_;
}

}  // namespace quorvane::platform::headless
