// Permission checks by type: dispatch by class name, known statuses answered at once, prompts
// answered on the main thread.
#include <algorithm>

#include "permission/LBXPermissionNet.h"
#include "permission/LBXPermission.h"
#include "permission/LBXPermissionKinds.h"
#include "permission_test_support.h"

namespace quorvane {
namespace {

using platform::PrivacyKind;
using platform::headless::AnswerOn;
using namespace testing;

using LBXPermissionDispatch = PrivacyTest;
using LBXPermissionPrompt = PrivacyTest;

TEST_F(LBXPermissionDispatch, KindWithoutClassAnswersNotGrantedAndNeverCallsBack) {
    privacy.authority->setStatus(PrivacyKind::Camera, platform::StatusAuthorized);
    auto camera = LBXPermissionRegistry::classNamed("LBXPermissionCamera");
    ASSERT_TRUE(camera);
    LBXPermissionRegistry::unregisterClass("LBXPermissionCamera");
    EXPECT_FALSE(LBXPermission::authorizedWithType(LBXPermissionTypeCamera));
    LBXPermission::authorizeWithType(LBXPermissionTypeCamera, recorder());
    LBXPermissionRegistry::registerClass("LBXPermissionCamera", *camera);

    // Health has no class of its own.
    EXPECT_FALSE(LBXPermission::authorizedWithType(LBXPermissionTypeHealth));
    EXPECT_FALSE(LBXPermission::isDeviceSupportedWithType(LBXPermissionTypeHealth));
    LBXPermission::authorizeWithType(LBXPermissionTypeHealth, recorder());
    LBXPermission::authorizeWithType(42, recorder());
    settle();
    EXPECT_TRUE(answers.empty());
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeCamera));  // served again once registered
}

TEST_F(LBXPermissionDispatch, RegisteredHealthClassIsServed) {
    LBXPermissionClass health;
    health.authorized = [] { return true; };
    health.isHealthDataAvailable = [] { return true; };
    health.authorizeWithCompletion = [](LBXPermissionCompletion c) { c(true, false); };
    LBXPermissionRegistry::registerClass("LBXPermissionHealth", health);
    EXPECT_TRUE(LBXPermission::isDeviceSupportedWithType(LBXPermissionTypeHealth));
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeHealth));
    LBXPermission::authorizeWithType(LBXPermissionTypeHealth, recorder());
    LBXPermissionRegistry::unregisterClass("LBXPermissionHealth");
    EXPECT_EQ(answers, (Answers{{true, false}}));
}

TEST_F(LBXPermissionDispatch, TypesMapToTheirKindsAndServicesAnswerYesExceptForLocation) {
    privacy.location->setServicesEnabled(false);
    EXPECT_FALSE(LBXPermission::isServicesEnabledWithType(LBXPermissionTypeLocation));
    for (int type : {1, 2, 3, 4, 5, 6, 7, 8, 9}) EXPECT_TRUE(LBXPermission::isServicesEnabledWithType(type)) << type;
    privacy.location->setServicesEnabled(true);
    EXPECT_TRUE(LBXPermission::isServicesEnabledWithType(LBXPermissionTypeLocation));
    EXPECT_TRUE(LBXPermission::isDeviceSupportedWithType(LBXPermissionTypeCamera));

    // Cellular data is never authorised, but its request reaches the data check.
    EXPECT_FALSE(LBXPermission::authorizedWithType(LBXPermissionTypeDataNetwork));
    LBXPermission::authorizeWithType(LBXPermissionTypeDataNetwork, recorder());
    EXPECT_TRUE(LBXPermissionData::sharedManager()->completion());

    // Each type reads its own kind.
    privacy.authority->setStatus(PrivacyKind::Reminders, platform::StatusAuthorized);
    privacy.authority->setStatus(PrivacyKind::Events, platform::StatusDenied);
    privacy.authority->setStatus(PrivacyKind::MediaLibrary, platform::StatusAuthorized);
    privacy.authority->setRecordPermission(platform::kRecordPermissionGranted);
    privacy.location->setAuthorizationStatus(platform::LocationStatusAuthorizedWhenInUse);
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeReminders));
    EXPECT_FALSE(LBXPermission::authorizedWithType(LBXPermissionTypeCalendar));
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeMediaLibrary));
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeMicrophone));
    EXPECT_TRUE(LBXPermission::authorizedWithType(LBXPermissionTypeLocation));
    EXPECT_FALSE(LBXPermission::authorizedWithType(LBXPermissionTypeContacts));
}

TEST_F(LBXPermissionPrompt, KnownStatusesAnswerAtOnceWithoutPrompt) {
    privacy.authority->setStatus(PrivacyKind::Camera, platform::StatusAuthorized);
    privacy.authority->setStatus(PrivacyKind::Contacts, platform::StatusDenied);
    privacy.authority->setStatus(PrivacyKind::Photos, 4);  // limited access
    LBXPermission::authorizeWithType(LBXPermissionTypeCamera, recorder());
    LBXPermission::authorizeWithType(LBXPermissionTypeContacts, recorder());
    LBXPermission::authorizeWithType(LBXPermissionTypePhotos, recorder());
    EXPECT_EQ(answers, (Answers{{true, false}, {false, false}, {false, false}}));  // before the main loop turns
    EXPECT_EQ(privacy.authority->prompts(PrivacyKind::Camera) + privacy.authority->prompts(PrivacyKind::Contacts) +
                  privacy.authority->prompts(PrivacyKind::Photos),
              0);

    // A camera without a status query counts as authorised.
    privacy.authority->setStatus(PrivacyKind::Camera, std::nullopt);
    EXPECT_TRUE(LBXPermissionCamera::authorized());
    EXPECT_EQ(LBXPermissionCamera::authorizationStatus(), platform::StatusAuthorized);
    LBXPermission::authorizeWithType(LBXPermissionTypeCamera, recorder());
    EXPECT_EQ(answers.back(), (Answer{true, false}));
}

TEST_F(LBXPermissionPrompt, AnswerGivenOnAWorkerThreadArrivesOnMain) {
    privacy.authority->scriptAnswer(PrivacyKind::Camera, true, AnswerOn::WorkerThread);
    privacy.authority->scriptAnswer(PrivacyKind::Events, false, AnswerOn::CallerThread);
    LBXPermission::authorizeWithType(LBXPermissionTypeCamera, recorder());
    LBXPermission::authorizeWithType(LBXPermissionTypeCalendar, recorder());
    EXPECT_TRUE(answers.empty());  // even an answer on the caller's thread goes through the main queue
    ASSERT_TRUE(waitFor([&] { return answers.size() == 2; }));
    const Answers expected = {{true, true}, {false, true}};  // in either order
    EXPECT_TRUE(std::is_permutation(answers.begin(), answers.end(), expected.begin(), expected.end()))
        << ::testing::PrintToString(answers);
    EXPECT_EQ(LBXPermissionCamera::authorizationStatus(), platform::StatusAuthorized);
}

TEST_F(LBXPermissionPrompt, LibraryPromptGrantsOnlyOnAuthorizedStatus) {
    privacy.authority->scriptStatusAnswer(PrivacyKind::Photos, 4);
    privacy.authority->scriptStatusAnswer(PrivacyKind::MediaLibrary, platform::StatusAuthorized);
    LBXPermission::authorizeWithType(LBXPermissionTypePhotos, recorder());
    ASSERT_TRUE(waitFor([&] { return answers.size() == 1; }));
    LBXPermission::authorizeWithType(LBXPermissionTypeMediaLibrary, recorder());
    ASSERT_TRUE(waitFor([&] { return answers.size() == 2; }));
    EXPECT_EQ(answers, (Answers{{false, true}, {true, true}}));
}

TEST_F(LBXPermissionPrompt, MicrophonePromptsOnlyWhileUndetermined) {
    privacy.authority->scriptRecordAnswer(false);
    LBXPermission::authorizeWithType(LBXPermissionTypeMicrophone, recorder());
    ASSERT_TRUE(waitFor([&] { return answers.size() == 1; }));
    EXPECT_EQ(privacy.authority->audioCategories(), std::vector<std::string>{"AVAudioSessionCategoryPlayAndRecord"});
    LBXPermission::authorizeWithType(LBXPermissionTypeMicrophone, recorder());  // now 'deny': no prompt
    EXPECT_EQ(privacy.authority->recordPrompts(), 1);
    privacy.authority->setRecordPermission(platform::fourCharCode("odd?"));
    LBXPermission::authorizeWithType(LBXPermissionTypeMicrophone, recorder());
    EXPECT_EQ(answers, (Answers{{false, true}, {false, false}, {false, true}}));
}

}  // namespace
}  // namespace quorvane
