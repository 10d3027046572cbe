#pragma once
// A whole headless device, with its concrete services so tests can script and inspect them.
#include <memory>

#include "platform/headless/headless_services.h"
#include "platform/headless/headless_system_sound.h"
#include "platform/platform.h"

namespace quorvane::platform::headless {

struct HeadlessDevice {
    std::shared_ptr<HeadlessDeviceInfo> device;
    std::shared_ptr<HeadlessPasteboard> pasteboard;
    std::shared_ptr<HeadlessUrlOpener> urlOpener;
    std::shared_ptr<HeadlessSystemSound> systemSound;

    Platform platform() const;
};

HeadlessDevice makeHeadlessDevice();
// Makes a fresh headless device and installs it as Platform::current().
HeadlessDevice installHeadlessDevice();

}  // namespace quorvane::platform::headless
