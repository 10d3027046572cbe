// The location permission: services switched off, the usage-description keys, the user's decision
// through the location manager, and a replaced pending callback.
#include "permission/LBXPermission.h"
#include "permission/LBXPermissionLocation.h"
#include "permission_test_support.h"
#include "platform/assertion.h"

namespace quorvane {
namespace {

using namespace testing;

class LBXPermissionLocationTest : public PrivacyTest {
protected:
    void TearDown() override {
        LBXPermissionLocation::sharedManager()->stopGps();
        platform::setAssertionHandler(nullptr);
        PrivacyTest::TearDown();
    }
};

TEST_F(LBXPermissionLocationTest, AlwaysKeyWinsAndTheDecisionArrivesOnMain) {
    privacy.appInfo->setInfoDictionary(
        {{"NSLocationWhenInUseUsageDescription", "while in use"}, {"NSLocationAlwaysUsageDescription", "always"}});
    privacy.location->scriptAuthorizationAnswer(platform::LocationStatusAuthorizedAlways);
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());
    ASSERT_TRUE(waitFor([&] { return answers.size() == 1; }));
    EXPECT_EQ(answers, (Answers{{true, true}}));
    EXPECT_EQ(privacy.location->authorizationRequests(), std::vector<std::string>{"always"});
    EXPECT_FALSE(LBXPermissionLocation::sharedManager()->locationManager());  // stopped and dropped
    EXPECT_FALSE(LBXPermissionLocation::sharedManager()->permissionCompletion());
}

TEST_F(LBXPermissionLocationTest, WhenInUseKeyAndRefusal) {
    privacy.appInfo->setInfoDictionary({{"NSLocationWhenInUseUsageDescription", "while in use"}});
    privacy.location->scriptAuthorizationAnswer(platform::LocationStatusDenied);
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());
    ASSERT_TRUE(waitFor([&] { return answers.size() == 1; }));
    EXPECT_EQ(privacy.location->authorizationRequests(), std::vector<std::string>{"whenInUse"});
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());  // decided now: at once
    EXPECT_EQ(answers, (Answers{{false, true}, {false, false}}));
}

TEST_F(LBXPermissionLocationTest, ServicesOffAnswersNoAtOnceAndAMissingUsageDescriptionFailsTheAssertion) {
    std::vector<std::string> failures;
    platform::setAssertionHandler([&](const platform::AssertionFailure& failure) {
        failures.push_back(failure.source + ":" + std::to_string(failure.line) + " " + failure.text);
    });
    privacy.location->setServicesEnabled(false);  // no keys either, but nothing is asked
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());
    EXPECT_EQ(answers, (Answers{{false, false}}));
    EXPECT_TRUE(failures.empty());
    EXPECT_TRUE(privacy.location->managers().empty());

    privacy.location->setServicesEnabled(true);
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0],
              "LBXPermissionLocation:120 To use location services in iOS 8+, your Info.plist must provide a value for "
              "either NSLocationWhenInUseUsageDescription or NSLocationAlwaysUsageDescription.");
    EXPECT_TRUE(privacy.location->authorizationRequests().empty());

    platform::setAssertionHandler(nullptr);  // the default handler ends the process
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder()),
                 "Assertion failure in -\\[LBXPermissionLocation startGps:\\], LBXPermissionLocation:120");
}

TEST_F(LBXPermissionLocationTest, NewRequestReplacesThePendingCallbackWithoutCallingIt) {
    privacy.appInfo->setInfoDictionary({{"NSLocationWhenInUseUsageDescription", "x"}});
    int first = 0;
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, [&](bool, bool) { ++first; });
    LBXPermission::authorizeWithType(LBXPermissionTypeLocation, recorder());
    settle();  // the "not determined" events while the question is up decide nothing
    EXPECT_TRUE(answers.empty());
    privacy.location->changeAuthorization(platform::LocationStatusAuthorizedWhenInUse);
    ASSERT_TRUE(waitFor([&] { return answers.size() == 1; }));
    settle();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(answers, (Answers{{true, true}}));
}

}  // namespace
}  // namespace quorvane
