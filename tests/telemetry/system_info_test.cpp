// Device facts: reachability and its own numbering, network names, terminal type, app names, the
// helper encodings, and the media facts of clips.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>

#include "VODUpload/src/AVCVAssetInfo.h"
#include "VODUpload/src/AVCVHelper.h"
#include "VODUpload/src/AVCVReachability.h"
#include "VODUpload/src/AVCVSystemInfo.h"
#include "device/reachability_test_support.h"
#include "foundation/dispatch.h"
#include "foundation/notification_center.h"
#include "foundation/temp_files.h"
#include "support/media_files.h"

using namespace quorvane;
using namespace quorvane::platform;

namespace {
constexpr ReachabilityFlags R = kReachabilityFlagsReachable;
constexpr ReachabilityFlags W = kReachabilityFlagsIsWWAN;
}  // namespace

TEST(AVCVReachability, OwnNumberingFromFlags) {
    constexpr ReachabilityFlags Required = kReachabilityFlagsConnectionRequired;
    const std::pair<ReachabilityFlags, int> statuses[] = {
        {0, 0}, {W, 0}, {R, 1}, {R | W | Required, 2}, {R | Required, 0},
        {R | Required | kReachabilityFlagsConnectionOnTraffic, 1},
        {R | Required | kReachabilityFlagsConnectionOnDemand | kReachabilityFlagsInterventionRequired, 0}};
    for (auto [flags, status] : statuses) EXPECT_EQ(AVCVReachability::networkStatusForFlags(flags), status) << flags;
    EXPECT_EQ(AVCVReachability::localWiFiStatusForFlags(R | kReachabilityFlagsIsDirect), 1);
    EXPECT_EQ(AVCVReachability::localWiFiStatusForFlags(R), 0);
}

TEST(AVCVReachability, HostFactoryMakesFreshInstancesAndNothingOnFailureAndAChangeIsPosted) {
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

    // A change posts its own notification.
    source->setFlags(R);
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

TEST(AVCVSystemInfo, NetworkNamesFollowReachabilityAndRadioTerminalTypeAndAppNames) {
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

    // Terminal type and app names.
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

// Encoded clips whose facts are known exactly: two seconds of a moving ramp at a modest bit rate, and
// a quarter-turned one whose natural size is swapped. A file that is no movie, or none, gives zeros.
TEST(AssetInfo, MediaFactsOfEncodedClipsAndZerosForAnythingElse) {
    foundation::ScopedTempDir dir;
    const std::string plain = dir.path() + "/plain.mp4", rotated = dir.path() + "/rotated.mp4";
    ASSERT_TRUE(test::writeClip(plain, {.frames = 50, .bitRate = 400000, .picture = test::ClipPicture::Gradient}));
    AVCVSize size = AVCVAssetInfo::AVCVNaturalSize(plain);
    EXPECT_EQ(size.width, 320);
    EXPECT_EQ(size.height, 240);
    EXPECT_NEAR(AVCVAssetInfo::AVCVFrameRate(plain), 25.0, 0.01);
    EXPECT_NEAR(AVCVAssetInfo::AVCVDuration(plain), 2.0, 0.05);
    EXPECT_NEAR(AVCVAssetInfo::AVCVVideoDuration(plain), 2.0, 0.05);
    EXPECT_EQ(AVCVAssetInfo::AVCVAudioDuration(plain), 0.0f);  // no audio track
    EXPECT_GT(AVCVAssetInfo::AVCVBitrate(plain), 10000.0f);
    EXPECT_LT(AVCVAssetInfo::AVCVBitrate(plain), 20000000.0f);

    ASSERT_TRUE(test::writeClip(rotated, {.width = 160, .height = 96, .fps = 30, .frames = 15, .rotation = 90,
                                          .bitRate = 400000, .picture = test::ClipPicture::Gradient}));
    size = AVCVAssetInfo::AVCVNaturalSize(rotated);
    EXPECT_EQ(size.width, 96);
    EXPECT_EQ(size.height, 160);
    EXPECT_NEAR(AVCVAssetInfo::AVCVFrameRate(rotated), 30.0, 0.01);
    EXPECT_NEAR(AVCVAssetInfo::AVCVVideoDuration(rotated), 0.5, 0.05);

    const std::string garbage = dir.path() + "/garbage.mp4";
    std::ofstream(garbage) << "not a movie";
    for (const std::string& p : {garbage, std::string("/nonexistent/clip.mp4")}) {
        EXPECT_EQ(AVCVAssetInfo::AVCVNaturalSize(p).width, 0);
        EXPECT_EQ(AVCVAssetInfo::AVCVFrameRate(p), 0.0f);
        EXPECT_EQ(AVCVAssetInfo::AVCVDuration(p), 0.0f);
        EXPECT_EQ(AVCVAssetInfo::AVCVBitrate(p), 0.0f);
    }
}
