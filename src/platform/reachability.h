#pragma once
// Network reachability as the platform reports it: flag words for a host name or a socket address,
// change callbacks, the cellular radio access technology and the cellular-data restriction.
// The flag bits are the published SystemConfiguration values, so the status rules above this layer
// read the same on every source.
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quorvane::platform {

using ReachabilityFlags = std::uint32_t;

inline constexpr ReachabilityFlags kReachabilityFlagsTransientConnection = 1u << 0;
inline constexpr ReachabilityFlags kReachabilityFlagsReachable = 1u << 1;
inline constexpr ReachabilityFlags kReachabilityFlagsConnectionRequired = 1u << 2;
inline constexpr ReachabilityFlags kReachabilityFlagsConnectionOnTraffic = 1u << 3;
inline constexpr ReachabilityFlags kReachabilityFlagsInterventionRequired = 1u << 4;
inline constexpr ReachabilityFlags kReachabilityFlagsConnectionOnDemand = 1u << 5;
inline constexpr ReachabilityFlags kReachabilityFlagsIsLocalAddress = 1u << 16;
inline constexpr ReachabilityFlags kReachabilityFlagsIsDirect = 1u << 17;
inline constexpr ReachabilityFlags kReachabilityFlagsIsWWAN = 1u << 18;

// The radio access technology names, as the telephony service spells them.
inline constexpr const char* CTRadioAccessTechnologyGPRS = "CTRadioAccessTechnologyGPRS";
inline constexpr const char* CTRadioAccessTechnologyEdge = "CTRadioAccessTechnologyEdge";
inline constexpr const char* CTRadioAccessTechnologyWCDMA = "CTRadioAccessTechnologyWCDMA";
inline constexpr const char* CTRadioAccessTechnologyHSDPA = "CTRadioAccessTechnologyHSDPA";
inline constexpr const char* CTRadioAccessTechnologyHSUPA = "CTRadioAccessTechnologyHSUPA";
inline constexpr const char* CTRadioAccessTechnologyCDMA1x = "CTRadioAccessTechnologyCDMA1x";
inline constexpr const char* CTRadioAccessTechnologyCDMAEVDORev0 = "CTRadioAccessTechnologyCDMAEVDORev0";
inline constexpr const char* CTRadioAccessTechnologyCDMAEVDORevA = "CTRadioAccessTechnologyCDMAEVDORevA";
inline constexpr const char* CTRadioAccessTechnologyCDMAEVDORevB = "CTRadioAccessTechnologyCDMAEVDORevB";
inline constexpr const char* CTRadioAccessTechnologyeHRPD = "CTRadioAccessTechnologyeHRPD";
inline constexpr const char* CTRadioAccessTechnologyLTE = "CTRadioAccessTechnologyLTE";

// Cellular-data restriction states.
enum class CellularDataRestrictedState { Unknown = 0, Restricted = 1, NotRestricted = 2 };

// One watched target (a host name or an address): the platform's reachability handle.
class ReachabilityTarget {
public:
    using Callback = std::function<void(ReachabilityFlags flags)>;
    virtual ~ReachabilityTarget() = default;
    // The current flags; nullopt when they cannot be read.
    virtual std::optional<ReachabilityFlags> flags() = 0;
    // Starts reporting flag changes to `callback`, on a thread of the source's choosing; the
    // receiver hops to its own queue. Returns false when changes cannot be watched.
    virtual bool schedule(Callback callback) = 0;
    // Stops reporting; no callback starts after it returns.
    virtual void unschedule() = 0;
};

class ReachabilitySource {
public:
    virtual ~ReachabilitySource() = default;
    // A handle for a host name (not resolved here); nullptr when it cannot be made.
    virtual std::shared_ptr<ReachabilityTarget> createWithName(const std::string& hostName) = 0;
    // A handle for an IPv4 or IPv6 socket address; nullptr when it cannot be made.
    virtual std::shared_ptr<ReachabilityTarget> createWithAddress(const sockaddr* address) = 0;
    // The cellular radio access technology (one of the names above), or nullopt without a radio.
    virtual std::optional<std::string> currentRadioAccessTechnology() = 0;
    // Reports the cellular-data restriction now and on every change, on a thread of the source's
    // choosing. A later call replaces the notifier.
    virtual void setCellularDataRestrictionNotifier(std::function<void(CellularDataRestrictedState)> notifier) = 0;
};

// The process-wide source, installed by a platform family. Until then (and after nullptr is
// installed) one that makes no handle: every target reads as unreachable. Never null.
std::shared_ptr<ReachabilitySource> reachabilitySource();
// Installs `source` (nullptr restores the one that makes no handle) and returns the previous one.
std::shared_ptr<ReachabilitySource> setReachabilitySource(std::shared_ptr<ReachabilitySource> source);

}  // namespace quorvane::platform
