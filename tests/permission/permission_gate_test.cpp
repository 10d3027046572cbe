// The façade's permission gate: proceed when granted, silence on a refusal at the prompt just
// shown, the error word (or the scanner's settings alert) when the user had already refused.
#include "api/QuorvaneApiManagerGate.h"
#include "permission/LBXPermission.h"
#include "permission_test_support.h"

namespace quorvane {
namespace {

using platform::PrivacyKind;
using namespace testing;

class PermissionGate : public PrivacyTest {
protected:
    void pass(int type = LBXPermissionTypeCamera, const char* word = kErrorWordNoCameraPermission) {
        passPermissionGate(type, word, [this](const Value& failure) { failures.push_back(failure); }, [this] { ++proceeded; });
    }
    std::vector<Value> failures;
    int proceeded = 0;
};

TEST_F(PermissionGate, FirstRefusalIsSilentRepeatRefusalGivesTheErrorWord) {
    privacy.authority->scriptAnswer(PrivacyKind::Camera, false);
    pass();
    ASSERT_TRUE(waitFor([&] { return privacy.authority->prompts(PrivacyKind::Camera) == 1; }));
    settle();
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(proceeded, 0);

    pass();
    settle();
    EXPECT_EQ(failures, std::vector<Value>{"NoCameraPermission"});
    EXPECT_EQ(privacy.authority->prompts(PrivacyKind::Camera), 1);

    // The microphone's refusal, known before, gives its own word at once.
    privacy.authority->setRecordPermission(platform::kRecordPermissionDenied);
    pass(LBXPermissionTypeMicrophone, kErrorWordNoMicrophonePermission);
    EXPECT_EQ(failures, (std::vector<Value>{"NoCameraPermission", "NoMicrophonePermission"}));
    EXPECT_EQ(proceeded, 0);
}

TEST_F(PermissionGate, GrantedProceedsOnceWithoutFailure) {
    privacy.authority->scriptAnswer(PrivacyKind::Camera, true);
    pass();
    ASSERT_TRUE(waitFor([&] { return proceeded == 1; }));
    pass();  // already authorised
    EXPECT_EQ(proceeded, 2);
    EXPECT_TRUE(failures.empty());
}

TEST_F(PermissionGate, ScannerFirstRefusalShowsNothingARepeatShowsTheSettingsAlert) {
    privacy.authority->scriptAnswer(PrivacyKind::Camera, false);
    passScanPermissionGate([this] { ++proceeded; });
    ASSERT_TRUE(waitFor([&] { return privacy.authority->prompts(PrivacyKind::Camera) == 1; }));
    settle();
    EXPECT_FALSE(root->presentedViewController());

    passScanPermissionGate([this] { ++proceeded; });
    auto alert = presentedAlert();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "提示");
    EXPECT_EQ(alert->message(), "没有相机权限，是否前往设置");
    auto actions = alert->actions();
    ASSERT_EQ(actions.size(), 2u);
    EXPECT_EQ(actions[0].title, "取消");
    EXPECT_EQ(actions[0].style, platform::AlertActionStyle::Cancel);
    EXPECT_EQ(actions[1].title, "设置");
    EXPECT_TRUE(alert->tap("设置"));
    ASSERT_EQ(device.urlOpener->opened().size(), 1u);
    EXPECT_EQ(device.urlOpener->opened()[0].url, platform::kOpenSettingsURLString);
    EXPECT_EQ(proceeded, 0);
    EXPECT_EQ(privacy.authority->prompts(PrivacyKind::Camera), 1);
}

}  // namespace
}  // namespace quorvane
