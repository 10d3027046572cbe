#include "platform/linux/linux_platform.h"

#include <sys/utsname.h>

#include "platform/linux/linux_permissions.h"
#include "platform/linux/reachability_linux.h"
#include "platform/platform.h"

namespace quorvane::platform::linux_impl {

LinuxDeviceInfo::LinuxDeviceInfo() {
    utsname name{};
    if (::uname(&name) != 0) return;
    systemName_ = name.sysname;
    systemVersion_ = name.release;
    model_ = name.machine;
}

std::string LinuxDeviceInfo::systemName() const { return systemName_; }
std::string LinuxDeviceInfo::systemVersion() const { return systemVersion_; }
std::string LinuxDeviceInfo::model() const { return model_; }
std::optional<std::string> LinuxDeviceInfo::identifierForVendor() const { return std::nullopt; }
ScreenBounds LinuxDeviceInfo::mainScreenBounds() const { return {}; }

LinuxPlatform installLinuxPlatform(std::optional<Coordinate> position) {
    LinuxPlatform installed{std::make_shared<LinuxDeviceInfo>(), std::make_shared<LinuxReachabilitySource>(), {}};
    auto platform = Platform::current();
    platform.device = installed.device;
    Platform::setCurrent(platform);
    setReachabilitySource(installed.reachability);
    installed.privacy = installLinuxPrivacy(position);
    return installed;
}

}  // namespace quorvane::platform::linux_impl
