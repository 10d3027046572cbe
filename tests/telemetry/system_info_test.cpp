#include <gtest/gtest.h>

#include <regex>

#include "VODUpload/src/AVCVHelper.h"
#include "VODUpload/src/AVCVReachability.h"
#include "VODUpload/src/AVCVSystemInfo.h"
#include "device/reachability_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/notification_center.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {
constexpr ReachabilityFlags R = kReachabilityFlagsReachable;
constexpr ReachabilityFlags W = kReachabilityFlagsIsWWAN;
}  // namespace

TEST(AVCVReachability, OwnNumberingFromFlags) {
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(0), 0);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(W), 0);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(R), 1);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(R | W | kReachabilityFlagsConnectionRequired), 2);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(R | kReachabilityFlagsConnectionRequired), 0);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(R | kReachabilityFlagsConnectionRequired |
                                                      kReachabilityFlagsConnectionOnTraffic),
              1);
    EXPECT_EQ(AVCVReachability::networkStatusForFlags(R | kReachabilityFlagsConnectionRequired |
                                                      kReachabilityFlagsConnectionOnDemand |
                                                      kReachabilityFlagsInterventionRequired),
              0);
    EXPECT_EQ(AVCVReachability::localWiFiStatusForFlags(R | kReachabilityFlagsIsDirect), 1);
    EXPECT_EQ(AVCVReachability::localWiFiStatusForFlags(R), 0);
}

TEST(AVCVReachability, HostFactoryMakesFreshInstancesAndNothingOnFailure) {
    test::ScriptedReachability source;
    auto a = AVCVReachability::reachabilityWithHostName("h.test");
    auto b = AVCVReachability::reachabilityWithHostName("h.test");
    ASSERT_TRUE(a && b);
    EXPECT_NE(a, b);
    source->setCreationFails(true);
    EXPECT_EQ(AVCVReachability::reachabilityWithHostName("h.test"), nullptr);
    source->setCreationFails(false);
    source->setFlags(std::nullopt);
    EXPECT_EQ(a->currentReachabilityStatus(), 0);
    EXPECT_FALSE(a->connectionRequired());
}

TEST(AVCVReachability, ChangePostsItsOwnNotification) {
    test::ScriptedReachability source;
    auto reachability = AVCVReachability::reachabilityForInternetConnection();
    ASSERT_TRUE(reachability->startNotifier());
    Value received;
    auto& center = foundation::NotificationCenter::defaultCenter();
    auto token = center.addObserver("kAVCVNetworkReachabilityChangedNotification",
                                    [&](const std::string&, const Value& info) { received = info; });
    source->fireChange();
    EXPECT_TRUE(foundation::MainLoop::instance().runUntil([&] { return !received.is_null(); },
                                                          std::chrono::seconds(30)));
    EXPECT_EQ(received["object"], reachability->objectId());
    center.removeObserver(token);
}

TEST(AVCVSystemInfo, NetworkNamesFollowReachabilityAndRadio) {
    test::ScriptedReachability source;
    source->setFlags(R);
    EXPECT_EQ(AVCVSystemInfo::deviceNetwrok(), "Wifi");
    source->setFlags(0);
    EXPECT_EQ(AVCVSystemInfo::deviceNetwrok(), "no network");
    source->setFlags(R | W);
    const std::pair<std::optional<std::string>, std::string> radios[] = {
        {CTRadioAccessTechnologyLTE, "4G"},          {CTRadioAccessTechnologyEdge, "2.75G EDGE"},
        {CTRadioAccessTechnologyHSDPA, "3.5G HSDPA"}, {CTRadioAccessTechnologyHSUPA, "3.5G HSUPA"},
        {CTRadioAccessTechnologyCDMA1x, "2G"},       {CTRadioAccessTechnologyCDMAEVDORevA, "3G"},
        {CTRadioAccessTechnologyeHRPD, "HRPD"},      {CTRadioAccessTechnologyGPRS, "GPRS"},
        {std::string("CTRadioAccessTechnologyNR"), ""}, {std::nullopt, ""},
    };
    for (const auto& [radio, name] : radios) {
        source->setRadioAccessTechnology(radio);
        EXPECT_EQ(AVCVSystemInfo::deviceNetwrok(), name) << radio.value_or("none");
    }
}

TEST(AVCVSystemInfo, TerminalTypeAndAppNames) {
    EXPECT_EQ(AVCVSystemInfo::terminalTypeForModel("iPad8,1"), "pad");
    EXPECT_EQ(AVCVSystemInfo::terminalTypeForModel("iPhone10,3"), "phone");
    EXPECT_EQ(AVCVSystemInfo::terminalTypeForModel(""), "phone");
    EXPECT_FALSE(AVCVSystemInfo::deviceModel().empty());
    AVCVSystemInfo::setBundleInfo("com.q.app", std::nullopt, "Bundle");
    EXPECT_EQ(AVCVSystemInfo::appDisplayName(), "Bundle");
    AVCVSystemInfo::setBundleInfo(std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(AVCVSystemInfo::appDisplayName(), "");
    EXPECT_EQ(AVCVSystemInfo::bundleId(), "");
}

TEST(AVCVHelper, EncodingsAndTimeTexts) {
    EXPECT_EQ(AVCVHelper::urlEncode(std::string("a=1 2&b/c~!*'()中")), "a%3D1%202%26b%2Fc~%21%2A%27%28%29%E4%B8%AD");
    EXPECT_EQ(AVCVHelper::urlEncode(std::nullopt), "");
    EXPECT_EQ(AVCVHelper::urlEncodeStringFromDict(Value{{"b", "x y"}, {"C", 1}, {"a", "2"}}), "a=2&b=x%20y&C=1");
    EXPECT_EQ(AVCVHelper::md5WithString("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_TRUE(std::regex_match(AVCVHelper::timeStampFormatted(),
                                 std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:0[0-5][0-9]Z")));
    EXPECT_TRUE(std::regex_match(AVCVHelper::timeStamp(), std::regex("[0-9]{10}")));
}
