#include "platform/platform.h"

#include <mutex>

#include "platform/headless/headless_platform.h"

namespace quorvane::platform {
namespace {

std::mutex& installedMutex() {
    static std::mutex mutex;
    return mutex;
}

Platform& installed() {
    static Platform platform = headless::makeHeadlessDevice().platform();
    return platform;
}

}  // namespace

Platform Platform::current() {
    std::lock_guard lock(installedMutex());
    return installed();
}

void Platform::setCurrent(Platform platform) {
    std::lock_guard lock(installedMutex());
    installed() = std::move(platform);
}

}  // namespace quorvane::platform
