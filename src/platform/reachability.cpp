#include "platform/reachability.h"

#include <mutex>

#include "platform/linux/reachability_linux.h"

namespace quorvane::platform {

namespace {
std::mutex gSourceMutex;
std::shared_ptr<ReachabilitySource> gSource;
}  // namespace

std::shared_ptr<ReachabilitySource> reachabilitySource() {
    std::lock_guard lock(gSourceMutex);
    if (!gSource) gSource = std::make_shared<linux_impl::LinuxReachabilitySource>();
    return gSource;
}

std::shared_ptr<ReachabilitySource> setReachabilitySource(std::shared_ptr<ReachabilitySource> source) {
    std::lock_guard lock(gSourceMutex);
    auto previous = std::move(gSource);
    gSource = std::move(source);
    return previous;
}

}  // namespace quorvane::platform
