#include "platform/headless/reachability_headless.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace quorvane::platform::headless {

std::string addressText(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address == nullptr) return {};
    if (address->sa_family == AF_INET) {
        auto* in = reinterpret_cast<const sockaddr_in*>(address);
        inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
    } else if (address->sa_family == AF_INET6) {
        auto* in6 = reinterpret_cast<const sockaddr_in6*>(address);
        inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text);
    }
    return text;
}

class HeadlessReachabilitySource::Target : public ReachabilityTarget {
public:
    Target(std::weak_ptr<HeadlessReachabilitySource> source, std::string key, bool isHost)
        : source_(std::move(source)), key_(std::move(key)), isHost_(isHost) {}

    std::optional<ReachabilityFlags> flags() override {
        auto source = source_.lock();
        return source ? source->flagsFor(key_, isHost_) : std::nullopt;
    }
    bool schedule(Callback callback) override {
        std::lock_guard lock(mutex_);
        callback_ = std::move(callback);
        return true;
    }
    void unschedule() override {
        std::lock_guard lock(mutex_);
        callback_ = nullptr;
    }
    // Calls the callback outside the lock-free path: the callback may unschedule.
    bool fire() {
        Callback callback;
        {
            std::lock_guard lock(mutex_);
            callback = callback_;
        }
        if (!callback) return false;
        callback(flags().value_or(0));
        return true;
    }
    bool scheduled() {
        std::lock_guard lock(mutex_);
        return static_cast<bool>(callback_);
    }

private:
    std::weak_ptr<HeadlessReachabilitySource> source_;
    std::string key_;
    bool isHost_;
    std::mutex mutex_;
    Callback callback_;
};

void HeadlessReachabilitySource::setFlags(std::optional<ReachabilityFlags> flags) {
    std::lock_guard lock(mutex_);
    flags_ = flags;
}

void HeadlessReachabilitySource::setFlagsForHost(const std::string& hostName, std::optional<ReachabilityFlags> flags) {
    std::lock_guard lock(mutex_);
    hostFlags_[hostName] = flags;
}

void HeadlessReachabilitySource::setFlagsForAddress(const std::string& address, std::optional<ReachabilityFlags> flags) {
    std::lock_guard lock(mutex_);
    addressFlags_[address] = flags;
}

void HeadlessReachabilitySource::setRadioAccessTechnology(std::optional<std::string> technology) {
    std::lock_guard lock(mutex_);
    radio_ = std::move(technology);
}

void HeadlessReachabilitySource::setCreationFails(bool fails) {
    std::lock_guard lock(mutex_);
    creationFails_ = fails;
}

void HeadlessReachabilitySource::setCellularDataState(CellularDataRestrictedState state) {
    std::function<void(CellularDataRestrictedState)> notifier;
    {
        std::lock_guard lock(mutex_);
        cellularState_ = state;
        notifier = cellularNotifier_;
    }
    if (notifier) notifier(state);
}

void HeadlessReachabilitySource::setCellularDataRestrictionNotifier(
    std::function<void(CellularDataRestrictedState)> notifier) {
    std::optional<CellularDataRestrictedState> state;
    {
        std::lock_guard lock(mutex_);
        cellularNotifier_ = notifier;
        state = cellularState_;
    }
    if (notifier && state) notifier(*state);
}

int HeadlessReachabilitySource::fireChange() {
    std::vector<std::shared_ptr<Target>> live;
    {
        std::lock_guard lock(mutex_);
        for (auto& weak : targets_)
            if (auto target = weak.lock()) live.push_back(std::move(target));
    }
    int fired = 0;
    for (auto& target : live) fired += target->fire() ? 1 : 0;
    return fired;
}

int HeadlessReachabilitySource::scheduledCount() const {
    std::lock_guard lock(mutex_);
    int count = 0;
    for (auto& weak : targets_)
        if (auto target = weak.lock(); target && target->scheduled()) ++count;
    return count;
}

std::shared_ptr<ReachabilityTarget> HeadlessReachabilitySource::createWithName(const std::string& hostName) {
    return make(hostName, true);
}

std::shared_ptr<ReachabilityTarget> HeadlessReachabilitySource::createWithAddress(const sockaddr* address) {
    std::string text = addressText(address);
    if (text.empty()) return nullptr;
    return make(text, false);
}

std::optional<std::string> HeadlessReachabilitySource::currentRadioAccessTechnology() {
    std::lock_guard lock(mutex_);
    return radio_;
}

std::optional<ReachabilityFlags> HeadlessReachabilitySource::flagsFor(const std::string& key, bool isHost) const {
    std::lock_guard lock(mutex_);
    const auto& overrides = isHost ? hostFlags_ : addressFlags_;
    auto it = overrides.find(key);
    return it != overrides.end() ? it->second : flags_;
}

std::shared_ptr<ReachabilityTarget> HeadlessReachabilitySource::make(const std::string& key, bool isHost) {
    std::lock_guard lock(mutex_);
    if (creationFails_) return nullptr;
    std::erase_if(targets_, [](const std::weak_ptr<Target>& weak) { return weak.expired(); });
    auto target = std::make_shared<Target>(weak_from_this(), key, isHost);
    targets_.push_back(target);
    return target;
}

}  // namespace quorvane::platform::headless
