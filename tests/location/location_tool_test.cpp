// One location request end to end on the headless device: a single answer per request, the
// geocoder's answer or failure, refusal, and the façade's 11-key dictionary.
#include <gtest/gtest.h>

#include "api/QuorvaneApiManager.h"
#include "device/DatumConversion.h"
#include "device/LocationTool.h"
#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"

namespace quorvane {
namespace {

bool waitFor(const std::function<bool()>& done) {
    return foundation::MainLoop::instance().runUntil(done, std::chrono::seconds(30));
}
void settle() { foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(150)); }

const platform::Location kBeijing{{39.9, 116.4}};

class LocationToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        device = platform::headless::installHeadlessDevice();
        privacy = platform::headless::installHeadlessPrivacy();
        privacy.location->setAuthorizationStatus(platform::LocationStatusAuthorizedWhenInUse);
        privacy.location->scriptPlacemarks({{.administrativeArea = "北京市", .locality = "北京市", .subLocality = std::nullopt,
                                             .thoroughfare = "长安街", .ISOcountryCode = "CN", .country = "中国", .name = "天安门"}});
    }
    void TearDown() override { settle(); }
    // Starts a request and hands the fix to the manager once it is updating.
    void request(std::vector<platform::Location> fix = {kBeijing}) {
        tool->getLocationInfo([this](const LocationInfo& info) { infos.push_back(info); });
        privacy.location->deliverLocations(std::move(fix));
    }

    platform::headless::HeadlessDevice device;
    platform::headless::HeadlessPrivacy privacy;
    std::shared_ptr<LocationTool> tool = std::make_shared<LocationTool>();
    std::vector<LocationInfo> infos;
};

TEST_F(LocationToolTest, OneRequestAnswersOnceFromTheFirstFix) {
    request({kBeijing, platform::Location{{31.0, 121.0}}});
    privacy.location->deliverLocations({platform::Location{{22.5, 114.0}}});
    ASSERT_TRUE(waitFor([&] { return !infos.empty(); }));
    settle();
    ASSERT_EQ(infos.size(), 1u);
    auto gcj = WGS84ConvertToGCJ02ForAMapView::transformFromWGSToGCJ({39.9, 116.4});
    // The converted point, not the raw fix, is geocoded.
    ASSERT_EQ(privacy.location->geocoded().size(), 1u);
    EXPECT_DOUBLE_EQ(privacy.location->geocoded()[0].coordinate.latitude, gcj.latitude);
    const auto& info = infos[0];
    EXPECT_TRUE(info.authorization);
    EXPECT_EQ(info.latitude, "39.901005");
    EXPECT_EQ(info.longitude, "116.406243");
    EXPECT_EQ(info.address, "北京市北京市长安街天安门");
    EXPECT_EQ(info.district, "");
    EXPECT_EQ(info.province, "北京市");
    EXPECT_EQ(info.place, "天安门");
    ASSERT_EQ(privacy.location->managers().size(), 1u);
    EXPECT_FALSE(privacy.location->managers()[0]->updating());
}

TEST_F(LocationToolTest, GeocoderFailureStillAnswersWithCoordinates) {
    privacy.location->scriptGeocoderError(Error("kCLErrorDomain", 2, "network down"));
    foundation::LogCapture log;
    request();
    ASSERT_TRUE(waitFor([&] { return !infos.empty(); }));
    EXPECT_TRUE(infos[0].authorization);
    EXPECT_EQ(infos[0].latitude, "39.901005");
    EXPECT_EQ(infos[0].address, "未获取到定位信息");
    EXPECT_EQ(infos[0].city + infos[0].country + infos[0].ISOcountryCode, "");
    EXPECT_TRUE(log.contains("获取定位信息失败， 失败原因 = network down"));
    EXPECT_TRUE(log.contains("国际坐标WGS-84，经度：116.400000，纬度：39.900000"));
}

TEST_F(LocationToolTest, EmptyUpdateAndServiceErrorsAnswerNothing) {
    foundation::LogCapture log;
    tool->getLocationInfo([this](const LocationInfo& info) { infos.push_back(info); });
    privacy.location->deliverError(Error("kCLErrorDomain", 0, "location unknown"));
    ASSERT_TRUE(waitFor([&] { return log.contains("获取失败：location unknown"); }));
    privacy.location->deliverLocations({});
    settle();
    EXPECT_TRUE(infos.empty());
}

TEST_F(LocationToolTest, UndeterminedAsksWhileInUse) {
    privacy.location->setAuthorizationStatus(platform::LocationStatusNotDetermined);
    tool->getLocationInfo([this](const LocationInfo& info) { infos.push_back(info); });
    EXPECT_EQ(privacy.location->authorizationRequests(), std::vector<std::string>{"whenInUse"});
    privacy.location->changeAuthorization(platform::LocationStatusDenied);
    ASSERT_TRUE(waitFor([&] { return !infos.empty(); }));
    EXPECT_FALSE(infos[0].authorization);
    EXPECT_EQ(infos[0].latitude, "0");
}

using FacadeLocation = LocationToolTest;

TEST_F(FacadeLocation, DeniedShowsTheSettingsAlertAndFails) {
    privacy.location->setAuthorizationStatus(platform::LocationStatusDenied);
    QuorvaneApiManager manager;
    auto controller = platform::headless::HeadlessPresenter::create();
    std::vector<Value> failures;
    int successes = 0;
    manager.getLocationWithController(controller, [&](const Value&) { ++successes; },
                                      [&](const Value& failure) { failures.push_back(failure); });
    ASSERT_TRUE(waitFor([&] { return !failures.empty(); }));
    EXPECT_EQ(failures[0], "no location permission");
    EXPECT_EQ(successes, 0);
    auto alert = controller->lastAlert();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "定位服务未开启");
}

TEST_F(FacadeLocation, SuccessIsTheElevenKeyDictionary) {
    QuorvaneApiManager manager;
    std::vector<Value> results;
    manager.getLocationWithController(nullptr, [&](const Value& result) { results.push_back(result); }, nullptr);
    privacy.location->deliverLocations({kBeijing});
    ASSERT_TRUE(waitFor([&] { return !results.empty(); }));
    std::vector<std::string> keys;
    for (auto& [key, value] : results[0].items()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"methodName", "latitude", "longitude", "countryCode", "country",
                                              "province", "city", "district", "street", "place", "address"}));
    EXPECT_EQ(results[0]["methodName"], "getLocation");
    EXPECT_EQ(results[0]["countryCode"], "CN");
    EXPECT_EQ(results[0]["longitude"], "116.406243");

    manager.setLocationTool(nullptr);  // without a tool the request does nothing
    manager.getLocationWithController(nullptr, [&](const Value& result) { results.push_back(result); }, nullptr);
    settle();
    EXPECT_EQ(results.size(), 1u);
}

}  // namespace
}  // namespace quorvane
