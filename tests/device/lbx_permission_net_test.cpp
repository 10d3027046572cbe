#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "permission/LBXPermissionNet.h"
#include "device/reachability_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {
constexpr auto kWait = std::chrono::seconds(30);
}

// The cellular-data check runs once per process, so the whole listener story is one test.
TEST(LBXPermissionNet, UnreachableHostReportsStatusThenPermissionThenTheRestriction) {
    test::ScriptedReachability source;
    source->setFlags(0);
    source->setCellularDataState(CellularDataRestrictedState::Restricted);
    // The shared listener outlives this test and keeps its callbacks: they hold the record alive.
    auto record = std::make_shared<std::vector<std::string>>();
    auto& events = *record;
    foundation::LogCapture log;
    auto net = LBXPermissionNet::sharedManager();
    net->setStartDelay(0.0);
    net->startListenNetWithHostName(
        "api.example.test", [record](NetworkStatus status) { record->push_back("status " + std::to_string(status)); },
        [record](bool granted) { record->push_back(granted ? "permission YES" : "permission NO"); });
    auto& loop = foundation::MainLoop::instance();
    ASSERT_TRUE(loop.runUntil([&] { return events.size() >= 3; }, kWait));
    EXPECT_EQ(events, (std::vector<std::string>{"status 0", "permission YES", "permission NO"}));
    EXPECT_FALSE(net->netReachable());
    EXPECT_FALSE(net->permissionGranted());
    EXPECT_TRUE(log.contains("网络不可用"));
    EXPECT_TRUE(log.contains("无网络权限"));

    // A change to 3G is handled (not logged by name) and reported as usable.
    events.clear();
    source->setFlags(kReachabilityFlagsReachable | kReachabilityFlagsIsWWAN);
    source->setRadioAccessTechnology(CTRadioAccessTechnologyHSUPA);
    ASSERT_EQ(source->fireChange(), 1);
    ASSERT_TRUE(loop.runUntil([&] { return events.size() >= 2; }, kWait));
    EXPECT_EQ(events, (std::vector<std::string>{"status 3", "permission YES"}));
    EXPECT_TRUE(net->netReachable());
    EXPECT_FALSE(log.contains("3G网络"));
    net->hostReachability()->stopNotifier();
}
