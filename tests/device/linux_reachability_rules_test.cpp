#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "platform/linux/reachability_linux.h"

using namespace quorvane::platform;
using namespace quorvane::platform::linux_impl;

namespace {

InterfaceAddress v4(const char* name, const char* address, const char* mask, bool wwan = false) {
    InterfaceAddress ifa;
    ifa.name = name;
    ifa.family = AF_INET;
    inet_pton(AF_INET, address, ifa.addr);
    inet_pton(AF_INET, mask, ifa.mask);
    ifa.loopback = std::strcmp(name, "lo") == 0;
    ifa.usable = !ifa.loopback;
    ifa.wwan = wwan;
    return ifa;
}

ReachabilityFlags forAddress(const NetworkSnapshot& snapshot, const char* text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, text, &address.sin_addr);
    return flagsForAddress(snapshot, reinterpret_cast<sockaddr*>(&address));
}

constexpr ReachabilityFlags R = kReachabilityFlagsReachable;
constexpr ReachabilityFlags Direct = kReachabilityFlagsIsDirect;
constexpr ReachabilityFlags Local = kReachabilityFlagsIsLocalAddress;

}  // namespace

TEST(LinuxReachabilityRules, WiredDefaultRouteIsReachableWithoutWWAN) {
    NetworkSnapshot wired{{v4("lo", "127.0.0.1", "255.0.0.0"), v4("eth0", "192.168.1.20", "255.255.255.0")}, {"eth0"}};
    EXPECT_EQ(flagsForHost(wired, "www.example.com"), R);
    EXPECT_EQ(forAddress(wired, "0.0.0.0"), R);
    EXPECT_EQ(forAddress(wired, "192.168.1.7"), R | Direct);
    EXPECT_EQ(forAddress(wired, "192.168.1.20"), R | Direct | Local);
    EXPECT_EQ(forAddress(wired, "169.254.0.0"), R | Direct);  // a wired link is a local link too
    EXPECT_EQ(flagsForHost(wired, "localhost"), R | Direct | Local);
    EXPECT_EQ(flagsForHost(wired, "127.0.0.1"), R | Direct | Local);
}

TEST(LinuxReachabilityRules, CellularDefaultRouteIsWWANAndHasNoLocalLink) {
    NetworkSnapshot cellular{{v4("lo", "127.0.0.1", "255.0.0.0"), v4("wwan0", "10.64.3.2", "255.255.255.252", true)},
                             {"wwan0"}};
    EXPECT_EQ(flagsForHost(cellular, "www.example.com"), R | kReachabilityFlagsIsWWAN);
    EXPECT_EQ(forAddress(cellular, "169.254.0.0"), R | kReachabilityFlagsIsWWAN);  // falls back to the route
}

TEST(LinuxReachabilityRules, NoDefaultRouteOrNoUsableInterfaceIsUnreachable) {
    NetworkSnapshot isolated{{v4("lo", "127.0.0.1", "255.0.0.0"), v4("eth0", "192.168.1.20", "255.255.255.0")}, {}};
    EXPECT_EQ(flagsForHost(isolated, "www.example.com"), 0u);
    EXPECT_EQ(forAddress(isolated, "192.168.1.7"), R | Direct);
    auto down = v4("eth0", "192.168.1.20", "255.255.255.0");
    down.usable = false;
    NetworkSnapshot linkDown{{v4("lo", "127.0.0.1", "255.0.0.0"), down}, {"eth0"}};
    EXPECT_EQ(flagsForHost(linkDown, "www.example.com"), 0u);
    EXPECT_EQ(forAddress(linkDown, "169.254.0.0"), 0u);
    EXPECT_EQ(forAddress(linkDown, "127.0.0.1"), R | Direct | Local);
}

TEST(LinuxReachabilityRules, InterfaceKindsOfThisMachineAreReadFromSysfs) {
    EXPECT_FALSE(interfaceIsWWAN("lo"));
    EXPECT_FALSE(interfaceIsWireless("lo"));
    EXPECT_TRUE(interfaceIsWWAN("wwan0"));  // by its name, even without sysfs
    const NetworkSnapshot snapshot = takeSnapshot();
    bool sawLoopback = false;
    for (const auto& ifa : snapshot.addresses) sawLoopback |= ifa.loopback && !ifa.usable;
    EXPECT_TRUE(sawLoopback);
}
