#pragma once
// A scriptable reachability source: tests set the flags (for everything, or per host name or
// address), the radio technology and the cellular-data state, and fire change announcements.
#include <map>
#include <mutex>
#include <vector>

#include "platform/reachability.h"

namespace quorvane::platform::headless {

class HeadlessReachabilitySource : public ReachabilitySource,
                                   public std::enable_shared_from_this<HeadlessReachabilitySource> {
public:
    // Flags of every target without an override; nullopt = unreadable.
    void setFlags(std::optional<ReachabilityFlags> flags);
    // Overrides for one host name, or one address in its numeric text ("169.254.0.0", "::1").
    void setFlagsForHost(const std::string& hostName, std::optional<ReachabilityFlags> flags);
    void setFlagsForAddress(const std::string& address, std::optional<ReachabilityFlags> flags);
    void setRadioAccessTechnology(std::optional<std::string> technology);
    // Creation of handles fails while this is set.
    void setCreationFails(bool fails);
    // Reports the state to the installed notifier now (and to a later one when it is installed).
    void setCellularDataState(CellularDataRestrictedState state);

    // Calls every scheduled target's callback with its current flags, on the calling thread.
    // Returns how many callbacks were called.
    int fireChange();
    int scheduledCount() const;

    std::shared_ptr<ReachabilityTarget> createWithName(const std::string& hostName) override;
    std::shared_ptr<ReachabilityTarget> createWithAddress(const sockaddr* address) override;
    std::optional<std::string> currentRadioAccessTechnology() override;
    void setCellularDataRestrictionNotifier(std::function<void(CellularDataRestrictedState)> notifier) override;

private:
    class Target;
    std::optional<ReachabilityFlags> flagsFor(const std::string& key, bool isHost) const;
    std::shared_ptr<ReachabilityTarget> make(const std::string& key, bool isHost);

    mutable std::mutex mutex_;
    std::optional<ReachabilityFlags> flags_ = kReachabilityFlagsReachable;
    std::map<std::string, std::optional<ReachabilityFlags>> hostFlags_;
    std::map<std::string, std::optional<ReachabilityFlags>> addressFlags_;
    std::optional<std::string> radio_;
    bool creationFails_ = false;
    std::optional<CellularDataRestrictedState> cellularState_;
    std::function<void(CellularDataRestrictedState)> cellularNotifier_;
    std::vector<std::weak_ptr<Target>> targets_;
};

// Numeric text of an IPv4/IPv6 socket address ("" for other families).
std::string addressText(const sockaddr* address);

}  // namespace quorvane::platform::headless
