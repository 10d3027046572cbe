#pragma once
// The device the system runs on: one struct of the platform services, replaceable as a whole.
// Each member is null until a platform family installs it (headless/headless_platform.h,
// linux/linux_platform.h); callers treat a null service as a device without it.
#include <memory>

#include "platform/device_info.h"
#include "platform/pasteboard.h"
#include "platform/system_sound.h"
#include "platform/url_opener.h"

namespace quorvane::platform {

struct Platform {
    std::shared_ptr<DeviceInfo> device;
    std::shared_ptr<Pasteboard> pasteboard;
    std::shared_ptr<UrlOpener> urlOpener;
    std::shared_ptr<SystemSound> systemSound;

    // A copy of the installed services; safe from any thread.
    static Platform current();
    static void setCurrent(Platform platform);
};

}  // namespace quorvane::platform
