#pragma once
// Reachability of this Linux machine, from its interfaces (getifaddrs) and routing table
// (/proc/net/route, /proc/net/ipv6_route), with changes watched on a netlink route socket.
//
// Mapping to the flag words:
//  - a host name, or the zero address (the internet connection), is reachable when an interface
//    that is up, running, not loopback and addressed carries a default route; "localhost" and
//    numeric host names are treated as addresses. Names are never resolved: a probe costs no
//    network traffic.
//  - an address on one of our own interfaces or loopback is reachable, local and direct; an address
//    inside the subnet of a usable interface is reachable and direct; anything else follows the
//    default-route rule.
//  - link-local 169.254/16 (the local Wi-Fi probe) is reachable and direct on any usable
//    non-cellular interface: wired Ethernet is a local broadcast link just like Wi-Fi, and the
//    status numbering has only one value for a non-cellular network, so a wired machine reports
//    the Wi-Fi status rather than "no network".
//  - the interface is cellular (is WWAN) when the kernel marks it DEVTYPE=wwan or names it
//    wwan*/rmnet*; no radio generation is known here, so the radio technology is always absent.
#include <string>
#include <vector>

#include "platform/reachability.h"

namespace quorvane::platform::linux_impl {

// One addressed interface, as the rules above see it.
struct InterfaceAddress {
    std::string name;
    int family = 0;         // AF_INET / AF_INET6
    unsigned char addr[16] = {};
    unsigned char mask[16] = {};
    bool usable = false;    // up, running, not loopback
    bool loopback = false;
    bool wwan = false;
};

struct NetworkSnapshot {
    std::vector<InterfaceAddress> addresses;
    std::vector<std::string> defaultRouteInterfaces;  // from the IPv4 and IPv6 tables
};

NetworkSnapshot takeSnapshot();
// The flag rules, pure over a snapshot (a host name is nullopt for address targets).
ReachabilityFlags flagsForHost(const NetworkSnapshot& snapshot, const std::string& hostName);
ReachabilityFlags flagsForAddress(const NetworkSnapshot& snapshot, const sockaddr* address);
// Whether the interface is cellular or wireless (sysfs).
bool interfaceIsWWAN(const std::string& name);
bool interfaceIsWireless(const std::string& name);

class LinuxReachabilitySource : public ReachabilitySource {
public:
    LinuxReachabilitySource();
    ~LinuxReachabilitySource() override;

    std::shared_ptr<ReachabilityTarget> createWithName(const std::string& hostName) override;
    std::shared_ptr<ReachabilityTarget> createWithAddress(const sockaddr* address) override;
    std::optional<std::string> currentRadioAccessTechnology() override;
    void setCellularDataRestrictionNotifier(std::function<void(CellularDataRestrictedState)> notifier) override;

    struct Monitor;

private:
    std::shared_ptr<Monitor> monitor_;
};

}  // namespace quorvane::platform::linux_impl
