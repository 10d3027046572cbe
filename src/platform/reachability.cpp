#include "platform/reachability.h"

#include <mutex>

namespace quorvane::platform {

namespace {
std::mutex gSourceMutex;
std::shared_ptr<ReachabilitySource> gSource;

// No network facility: no handle can be made, there is no radio and the restriction is unknown.
class UnavailableReachabilitySource : public ReachabilitySource {
public:
    std::shared_ptr<ReachabilityTarget> createWithName(const std::string&) override { return nullptr; }
    std::shared_ptr<ReachabilityTarget> createWithAddress(const sockaddr*) override { return nullptr; }
    std::optional<std::string> currentRadioAccessTechnology() override { return std::nullopt; }
    void setCellularDataRestrictionNotifier(std::function<void(CellularDataRestrictedState)> notifier) override {
        if (notifier) notifier(CellularDataRestrictedState::Unknown);
    }
};
}  // namespace

std::shared_ptr<ReachabilitySource> reachabilitySource() {
    std::lock_guard lock(gSourceMutex);
    if (!gSource) gSource = std::make_shared<UnavailableReachabilitySource>();
    return gSource;
}

std::shared_ptr<ReachabilitySource> setReachabilitySource(std::shared_ptr<ReachabilitySource> source) {
    std::lock_guard lock(gSourceMutex);
    auto previous = std::move(gSource);
    gSource = std::move(source);
    return previous;
}

}  // namespace quorvane::platform
