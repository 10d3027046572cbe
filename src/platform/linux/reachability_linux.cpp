#include "platform/linux/reachability_linux.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

namespace quorvane::platform::linux_impl {

namespace {

constexpr ReachabilityFlags kLocalFlags =
    kReachabilityFlagsReachable | kReachabilityFlagsIsLocalAddress | kReachabilityFlagsIsDirect;

bool fileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Interfaces that carry a default route, from the kernel's IPv4 and IPv6 tables.
std::vector<std::string> defaultRoutes() {
    std::vector<std::string> names;
    std::istringstream v4(readFile("/proc/net/route"));
    std::string line;
    std::getline(v4, line);  // header
    while (std::getline(v4, line)) {
        std::istringstream fields(line);
        std::string name, destination, gateway, flags, refcnt, use, metric, mask;
        fields >> name >> destination >> gateway >> flags >> refcnt >> use >> metric >> mask;
        if (destination == "00000000" && mask == "00000000" && (std::stoul(flags, nullptr, 16) & 0x1))
            names.push_back(name);
    }
    std::istringstream v6(readFile("/proc/net/ipv6_route"));
    while (std::getline(v6, line)) {
        std::istringstream fields(line);
        std::string destination, prefix, source, sourcePrefix, next, metric, refcnt, use, flags, name;
        fields >> destination >> prefix >> source >> sourcePrefix >> next >> metric >> refcnt >> use >> flags >> name;
        if (prefix == "00" && destination == std::string(32, '0') && name != "lo") names.push_back(name);
    }
    return names;
}

std::size_t addressLength(int family) { return family == AF_INET ? 4 : 16; }

bool copyAddress(const sockaddr* address, int& family, unsigned char* out) {
    if (address == nullptr) return false;
    family = address->sa_family;
    if (family == AF_INET) {
        std::memcpy(out, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, 4);
        return true;
    }
    if (family == AF_INET6) {
        std::memcpy(out, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, 16);
        return true;
    }
    return false;
}

bool isLoopbackAddress(int family, const unsigned char* a) {
    if (family == AF_INET) return a[0] == 127;
    static const unsigned char one[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return std::memcmp(a, one, 16) == 0;
}

bool isZeroAddress(int family, const unsigned char* a) {
    const std::size_t n = addressLength(family);
    return std::all_of(a, a + n, [](unsigned char b) { return b == 0; });
}

bool sameSubnet(const InterfaceAddress& ifa, const unsigned char* a) {
    for (std::size_t i = 0; i < addressLength(ifa.family); ++i)
        if ((ifa.addr[i] & ifa.mask[i]) != (a[i] & ifa.mask[i])) return false;
    return true;
}

// The default-route rule: reachable through an interface that carries a default route.
ReachabilityFlags internetFlags(const NetworkSnapshot& snapshot) {
    for (const auto& route : snapshot.defaultRouteInterfaces)
        for (const auto& ifa : snapshot.addresses)
            if (ifa.usable && ifa.name == route)
                return kReachabilityFlagsReachable | (ifa.wwan ? kReachabilityFlagsIsWWAN : 0);
    return 0;
}

}  // namespace

bool interfaceIsWireless(const std::string& name) {
    return fileExists("/sys/class/net/" + name + "/wireless") || fileExists("/sys/class/net/" + name + "/phy80211");
}

bool interfaceIsWWAN(const std::string& name) {
    if (name.rfind("wwan", 0) == 0 || name.rfind("rmnet", 0) == 0) return true;
    return readFile("/sys/class/net/" + name + "/uevent").find("DEVTYPE=wwan") != std::string::npos;
}

NetworkSnapshot takeSnapshot() {
    NetworkSnapshot snapshot;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) == 0) {
        for (ifaddrs* it = list; it != nullptr; it = it->ifa_next) {
            InterfaceAddress ifa;
            if (!copyAddress(it->ifa_addr, ifa.family, ifa.addr)) continue;
            int maskFamily = 0;
            copyAddress(it->ifa_netmask, maskFamily, ifa.mask);
            ifa.name = it->ifa_name;
            ifa.loopback = (it->ifa_flags & IFF_LOOPBACK) != 0;
            ifa.usable = (it->ifa_flags & IFF_UP) && (it->ifa_flags & IFF_RUNNING) && !ifa.loopback;
            ifa.wwan = ifa.usable && interfaceIsWWAN(ifa.name);
            snapshot.addresses.push_back(ifa);
        }
        freeifaddrs(list);
    }
    snapshot.defaultRouteInterfaces = defaultRoutes();
    return snapshot;
}

ReachabilityFlags flagsForHost(const NetworkSnapshot& snapshot, const std::string& hostName) {
    sockaddr_in6 in6{};
    sockaddr_in in{};
    if (hostName == "localhost") return kLocalFlags;
    if (inet_pton(AF_INET, hostName.c_str(), &in.sin_addr) == 1) {
        in.sin_family = AF_INET;
        return flagsForAddress(snapshot, reinterpret_cast<sockaddr*>(&in));
    }
    if (inet_pton(AF_INET6, hostName.c_str(), &in6.sin6_addr) == 1) {
        in6.sin6_family = AF_INET6;
        return flagsForAddress(snapshot, reinterpret_cast<sockaddr*>(&in6));
    }
    return internetFlags(snapshot);
}

ReachabilityFlags flagsForAddress(const NetworkSnapshot& snapshot, const sockaddr* address) {
    int family = 0;
    unsigned char a[16] = {};
    if (!copyAddress(address, family, a)) return 0;
    if (isZeroAddress(family, a)) return internetFlags(snapshot);
    if (isLoopbackAddress(family, a)) return kLocalFlags;
    const bool linkLocal = family == AF_INET && a[0] == 169 && a[1] == 254;
    for (const auto& ifa : snapshot.addresses) {
        if (ifa.family != family) continue;
        if (std::memcmp(ifa.addr, a, addressLength(family)) == 0) return kLocalFlags;
    }
    for (const auto& ifa : snapshot.addresses) {
        if (!ifa.usable || ifa.family != AF_INET) continue;
        if (linkLocal && !ifa.wwan) return kReachabilityFlagsReachable | kReachabilityFlagsIsDirect;
    }
    for (const auto& ifa : snapshot.addresses) {
        if (ifa.usable && ifa.family == family && sameSubnet(ifa, a))
            return kReachabilityFlagsReachable | kReachabilityFlagsIsDirect | (ifa.wwan ? kReachabilityFlagsIsWWAN : 0);
    }
    return internetFlags(snapshot);
}

// Watches the kernel's link, address and route announcements on one netlink socket and re-reads
// the flags of every scheduled target after each burst, reporting only those that changed.
struct LinuxReachabilitySource::Monitor {
    class Target;

    std::mutex mutex;
    std::vector<std::weak_ptr<Target>> targets;
    std::thread thread;
    int netlink = -1;
    int wake = -1;

    ~Monitor() { stop(); }
    bool ensureRunning();
    void stop();
    void loop();
    void refresh();
    void add(const std::shared_ptr<Target>& target);
};

class LinuxReachabilitySource::Monitor::Target : public ReachabilityTarget,
                                                 public std::enable_shared_from_this<Target> {
public:
    Target(std::weak_ptr<Monitor> monitor, std::optional<std::string> host, const sockaddr* address)
        : monitor_(std::move(monitor)), host_(std::move(host)) {
        if (address != nullptr)
            std::memcpy(&address_, address, address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
    }

    ReachabilityFlags read(const NetworkSnapshot& snapshot) const {
        return host_ ? flagsForHost(snapshot, *host_)
                     : flagsForAddress(snapshot, reinterpret_cast<const sockaddr*>(&address_));
    }
    std::optional<ReachabilityFlags> flags() override { return read(takeSnapshot()); }

    bool schedule(Callback callback) override {
        auto monitor = monitor_.lock();
        if (!monitor || !monitor->ensureRunning()) return false;
        {
            std::lock_guard lock(callMutex_);
            callback_ = std::move(callback);
            last_ = read(takeSnapshot());
        }
        monitor->add(shared_from_this());
        return true;
    }
    void unschedule() override {
        std::lock_guard lock(callMutex_);
        callback_ = nullptr;
    }
    // Reports the flags when they differ from the last report. Runs on the monitor thread.
    void check(const NetworkSnapshot& snapshot) {
        std::lock_guard lock(callMutex_);
        if (!callback_) return;
        ReachabilityFlags now = read(snapshot);
        if (now == last_) return;
        last_ = now;
        callback_(now);
    }

private:
    std::weak_ptr<Monitor> monitor_;
    std::optional<std::string> host_;
    sockaddr_storage address_{};
    std::recursive_mutex callMutex_;  // held while calling, so unschedule() waits for a running call
    Callback callback_;
    ReachabilityFlags last_ = 0;
};

bool LinuxReachabilitySource::Monitor::ensureRunning() {
    std::lock_guard lock(mutex);
    if (thread.joinable()) return true;
    netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (netlink < 0) return false;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    wake = eventfd(0, EFD_CLOEXEC);
    if (wake < 0 || bind(netlink, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        close(netlink);
        if (wake >= 0) close(wake);
        netlink = wake = -1;
        return false;
    }
    thread = std::thread([this] { loop(); });
    return true;
}

void LinuxReachabilitySource::Monitor::stop() {
    if (!thread.joinable()) return;
    std::uint64_t one = 1;
    [[maybe_unused]] auto written = write(wake, &one, sizeof one);
    thread.join();
    close(netlink);
    close(wake);
}

void LinuxReachabilitySource::Monitor::loop() {
    char buffer[8192];
    for (;;) {
        pollfd fds[2] = {{netlink, POLLIN, 0}, {wake, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents) return;
        // Drain the burst a change produces (link, addresses, routes) before re-reading once.
        while (recv(netlink, buffer, sizeof buffer, MSG_DONTWAIT) > 0) {
        }
        refresh();
    }
}

void LinuxReachabilitySource::Monitor::refresh() {
    std::vector<std::shared_ptr<Target>> live;
    {
        std::lock_guard lock(mutex);
        std::erase_if(targets, [](const std::weak_ptr<Target>& weak) { return weak.expired(); });
        for (auto& weak : targets)
            if (auto target = weak.lock()) live.push_back(std::move(target));
    }
    if (live.empty()) return;
    const NetworkSnapshot snapshot = takeSnapshot();
    for (auto& target : live) target->check(snapshot);
}

void LinuxReachabilitySource::Monitor::add(const std::shared_ptr<Target>& target) {
    std::lock_guard lock(mutex);
    for (auto& weak : targets)
        if (weak.lock() == target) return;
    targets.push_back(target);
}

LinuxReachabilitySource::LinuxReachabilitySource() : monitor_(std::make_shared<Monitor>()) {}

LinuxReachabilitySource::~LinuxReachabilitySource() = default;

std::shared_ptr<ReachabilityTarget> LinuxReachabilitySource::createWithName(const std::string& hostName) {
    if (hostName.empty()) return nullptr;
    return std::make_shared<Monitor::Target>(monitor_, hostName, nullptr);
}

std::shared_ptr<ReachabilityTarget> LinuxReachabilitySource::createWithAddress(const sockaddr* address) {
    if (address == nullptr || (address->sa_family != AF_INET && address->sa_family != AF_INET6)) return nullptr;
    return std::make_shared<Monitor::Target>(monitor_, std::nullopt, address);
}

// No telephony service on a Linux host: there is no radio to name.
std::optional<std::string> LinuxReachabilitySource::currentRadioAccessTechnology() { return std::nullopt; }

// Linux has no per-application cellular-data switch: the network is never restricted.
void LinuxReachabilitySource::setCellularDataRestrictionNotifier(
    std::function<void(CellularDataRestrictedState)> notifier) {
    if (notifier) notifier(CellularDataRestrictedState::NotRestricted);
}

}  // namespace quorvane::platform::linux_impl
