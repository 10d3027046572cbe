#include "platform/headless/headless_platform.h"

namespace quorvane::platform::headless {

Platform HeadlessDevice::platform() const {
    return Platform{device, pasteboard, urlOpener, systemSound};
}

HeadlessDevice makeHeadlessDevice() {
    return HeadlessDevice{std::make_shared<HeadlessDeviceInfo>(), std::make_shared<HeadlessPasteboard>(),
                          std::make_shared<HeadlessUrlOpener>(), std::make_shared<HeadlessSystemSound>()};
}

HeadlessDevice installHeadlessDevice() {
    auto device = makeHeadlessDevice();
    Platform::setCurrent(device.platform());
    return device;
}

}  // namespace quorvane::platform::headless
