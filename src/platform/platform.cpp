#include "platform/platform.h"

#include <mutex>

namespace quorvane::platform {
namespace {

std::mutex& installedMutex() {
    static std::mutex mutex;
    return mutex;
}

Platform& installed() {
    static Platform platform;  // nothing until a platform family is installed
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
