#pragma once
// The Linux family: the machine's own reachability, privacy answers and position (linux_permissions.h,
// linux_location.h), and its kernel facts as device facts. No pasteboard, URL opener or system
// sound: those stay as installed (absent unless another family gave them). Capture devices are a
// library of their own (capture/linux_capture.h).
#include <memory>
#include <optional>

#include "platform/device_info.h"
#include "platform/location.h"
#include "platform/permissions.h"
#include "platform/reachability.h"

namespace quorvane::platform::linux_impl {

// Facts from uname(2): system name and kernel release, the machine type as the model. No vendor
// identifier and no screen.
class LinuxDeviceInfo : public DeviceInfo {
public:
    LinuxDeviceInfo();
    std::string systemName() const override;
    std::string systemVersion() const override;
    std::string model() const override;
    std::optional<std::string> identifierForVendor() const override;
    ScreenBounds mainScreenBounds() const override;
private:
    std::string systemName_, systemVersion_, model_;
};

struct LinuxPlatform {
    std::shared_ptr<LinuxDeviceInfo> device;
    std::shared_ptr<ReachabilitySource> reachability;
    PrivacyServices privacy;
};

// Installs the family: the device facts into Platform::current(), the reachability source and the
// privacy set, with location at `position` (the host's configuration; none: location services off).
LinuxPlatform installLinuxPlatform(std::optional<Coordinate> position);

}  // namespace quorvane::platform::linux_impl
