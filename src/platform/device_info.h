#pragma once
// Device and main-screen facts (UIDevice, UIScreen).
#include <optional>
#include <string>

namespace quorvane::platform {

struct ScreenBounds {
    double width = 0;
    double height = 0;
};

class DeviceInfo {
public:
    virtual ~DeviceInfo() = default;
    virtual std::string systemName() const = 0;
    virtual std::string systemVersion() const = 0;
    virtual std::string model() const = 0;
    // The vendor identifier's UUID string; absent when the system gives none.
    virtual std::optional<std::string> identifierForVendor() const = 0;
    virtual ScreenBounds mainScreenBounds() const = 0;
};

}  // namespace quorvane::platform
