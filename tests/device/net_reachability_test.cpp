#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <optional>
#include <string>
#include <vector>

#include "device/NetReachability.h"
#include "device/reachability_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/notification_center.h"
#include "platform/linux/reachability_linux.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {

constexpr auto kWait = std::chrono::seconds(30);
constexpr ReachabilityFlags R = kReachabilityFlagsReachable;
constexpr ReachabilityFlags kReq = kReachabilityFlagsConnectionRequired;

struct StatusCase {
    ReachabilityFlags flags;
    std::optional<std::string> radio;
    NetworkStatus expected;
};

}  // namespace

TEST(NetReachability, StatusFromFlagsAndRadioTechnology) {
    test::ScriptedReachability source;
    const StatusCase cases[] = {
        {0, std::nullopt, 0},
        {kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyLTE, 0},  // WWAN without reachable
        {R, std::nullopt, 9},
        {R | kReq, std::nullopt, 0},
        {R | kReq | kReachabilityFlagsConnectionOnDemand, std::nullopt, 9},
        {R | kReq | kReachabilityFlagsConnectionOnTraffic, std::nullopt, 9},
        {R | kReq | kReachabilityFlagsConnectionOnDemand | kReachabilityFlagsInterventionRequired, std::nullopt, 0},
        {R | kReq | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyLTE, 4},
        {R | kReachabilityFlagsIsWWAN, std::nullopt, 1},
        {R | kReachabilityFlagsIsWWAN, std::string("CTRadioAccessTechnologyNR"), 1},
        {R | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyHSDPA, 3},
        {R | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyeHRPD, 3},
        {R | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyCDMAEVDORevB, 3},
        {R | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyEdge, 2},
        {R | kReachabilityFlagsIsWWAN, CTRadioAccessTechnologyCDMA1x, 2},
    };
    auto reachability = NetReachability::reachabilityForInternetConnection();
    ASSERT_TRUE(reachability);
    for (const auto& c : cases) {
        source->setRadioAccessTechnology(c.radio);
        EXPECT_EQ(reachability->NetReachWorkStatusForFlags(c.flags), c.expected) << "flags " << c.flags;
        source->setFlags(c.flags);
        EXPECT_EQ(reachability->currentReachabilityStatus(), c.expected) << "flags " << c.flags;
    }
    source->setFlags(std::nullopt);  // unreadable flags
    EXPECT_EQ(reachability->currentReachabilityStatus(), 0);
}

TEST(NetReachability, LocalWiFiNeedsReachableAndDirectAndPrintsItsFlags) {
    test::ScriptedReachability source;
    source->setFlagsForAddress("169.254.0.0", R | kReachabilityFlagsIsDirect);
    auto local = NetReachability::reachabilityForLocalWiFi();
    ASSERT_TRUE(local);
    EXPECT_TRUE(local->alwaysReturnLocalWiFiStatus());
    foundation::LogCapture log;
    EXPECT_EQ(local->currentReachabilityStatus(), 9);
    EXPECT_TRUE(log.contains("Reachability Flag Status: -R ------d localWiFiStatusForFlags"));
    source->setFlagsForAddress("169.254.0.0", R);
    EXPECT_EQ(local->currentReachabilityStatus(), 0);
    // The general instance reads the default flags, not the link-local override.
    source->setFlags(R | kReachabilityFlagsIsWWAN);
    EXPECT_FALSE(NetReachability::reachabilityForInternetConnection()->alwaysReturnLocalWiFiStatus());
    EXPECT_EQ(reachabilityFlagsText(0x7FFFFFFF, "all"), "Reachability Flag Status: WR tcCiDld all");
}

TEST(NetReachability, FailedHostCreationReturnsThePreviousInstance) {
    test::ScriptedReachability source;
    auto first = NetReachability::reachabilityWithHostName("example.test");
    ASSERT_TRUE(first);
    source->setCreationFails(true);
    EXPECT_EQ(NetReachability::reachabilityWithHostName("other.test"), first);
    EXPECT_EQ(NetReachability::reachabilityWithAddress(nullptr), nullptr);
    source->setCreationFails(false);
    auto second = NetReachability::reachabilityWithHostName("other.test");
    EXPECT_NE(second, first);
    source->setFlags(R | kReq);
    EXPECT_TRUE(second->connectionRequired());
}

TEST(NetReachability, ChangeIsAnnouncedOnTheMainLoopNamingTheInstance) {
    test::ScriptedReachability source;
    auto reachability = NetReachability::reachabilityForInternetConnection();
    ASSERT_TRUE(reachability->startNotifier());
    std::vector<Value> received;
    bool onMain = false;
    auto& center = foundation::NotificationCenter::defaultCenter();
    auto token = center.addObserver(kNetWorkStatusReachabilityChangedNotification,
                                    [&](const std::string&, const Value& info) {
                                        onMain = foundation::isMainThread();
                                        received.push_back(info);
                                    });
    foundation::LogCapture log;
    source->setFlags(R | kReachabilityFlagsIsWWAN);
    source->setRadioAccessTechnology(CTRadioAccessTechnologyWCDMA);
    EXPECT_EQ(source->fireChange(), 1);
    ASSERT_TRUE(foundation::MainLoop::instance().runUntil([&] { return !received.empty(); }, kWait));
    EXPECT_TRUE(onMain);
    EXPECT_EQ(received[0]["status"], 3);
    EXPECT_EQ(NetReachability::fromNotification(received[0]), reachability);
    EXPECT_TRUE(log.contains("status:3"));

    reachability->stopNotifier();
    EXPECT_EQ(source->fireChange(), 0);
    center.removeObserver(token);
}

TEST(NetReachability, WithoutAPlatformFamilyNoTargetIsMadeAndTheStatusIsUnknown) {
    auto previous = setReachabilitySource(nullptr);
    EXPECT_EQ(NetReachability::reachabilityForInternetConnection(), nullptr);
    std::optional<CellularDataRestrictedState> reported;
    reachabilitySource()->setCellularDataRestrictionNotifier([&](CellularDataRestrictedState s) { reported = s; });
    EXPECT_EQ(reported, CellularDataRestrictedState::Unknown);
    setReachabilitySource(previous);
}

TEST(NetReachability, LinuxSourceReportsASaneStatusForThisMachine) {
    auto previous = setReachabilitySource(std::make_shared<platform::linux_impl::LinuxReachabilitySource>());
    auto internet = NetReachability::reachabilityForInternetConnection();
    auto local = NetReachability::reachabilityWithHostName("localhost");
    sockaddr_in loopback{};
    loopback.sin_family = AF_INET;
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto loop = NetReachability::reachabilityWithAddress(reinterpret_cast<sockaddr*>(&loopback));
    ASSERT_TRUE(internet && local && loop);
    const NetworkStatus status = internet->currentReachabilityStatus();
    EXPECT_TRUE(status == 0 || status == 1 || status == 9) << status;
    EXPECT_EQ(local->currentReachabilityStatus(), 9);
    EXPECT_EQ(loop->currentReachabilityStatus(), 9);
    EXPECT_FALSE(loop->connectionRequired());
    EXPECT_TRUE(internet->startNotifier());  // the netlink watcher can be opened here
    internet->stopNotifier();
    setReachabilitySource(previous);
}
