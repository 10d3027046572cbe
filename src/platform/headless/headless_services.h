#pragma once
// Headless device facts, pasteboard and URL opener: in memory, scriptable, deterministic.
#include <mutex>
#include <set>
#include <vector>

#include "platform/device_info.h"
#include "platform/pasteboard.h"
#include "platform/url_opener.h"

namespace quorvane::platform::headless {

struct DeviceFacts {
    std::string systemName = "Linux";
    std::string systemVersion = "1.0";
    std::string model = "Headless";
    std::optional<std::string> identifierForVendor;
    ScreenBounds screen{390, 844};
};

class HeadlessDeviceInfo : public DeviceInfo {
public:
    void setFacts(DeviceFacts facts);
    DeviceFacts facts() const;
    std::string systemName() const override;
    std::string systemVersion() const override;
    std::string model() const override;
    std::optional<std::string> identifierForVendor() const override;
    ScreenBounds mainScreenBounds() const override;
private:
    mutable std::mutex mutex_;
    DeviceFacts facts_;
};

class HeadlessPasteboard : public Pasteboard {
public:
    void setString(const std::optional<std::string>& text) override;
    std::optional<std::string> string() const override;
    int writes() const;
private:
    mutable std::mutex mutex_;
    std::optional<std::string> text_;
    int writes_ = 0;
};

// Opens URLs whose scheme was declared installed, and always the settings URL.
class HeadlessUrlOpener : public UrlOpener {
public:
    struct Opened {
        std::string url;
        Value options;
        bool opened = false;
    };
    // Declares an application handling "scheme:" URLs (e.g. "wechat").
    void installScheme(const std::string& scheme);
    bool canOpenURL(const std::string& url) const override;
    void openURL(const std::string& url, const Value& options, std::function<void(bool)> completion) override;
    std::vector<Opened> opened() const;
private:
    mutable std::mutex mutex_;
    std::set<std::string> schemes_;
    std::vector<Opened> opened_;
};

}  // namespace quorvane::platform::headless
