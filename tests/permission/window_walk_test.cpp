// Where alerts are presented: the key window's walk through presented and navigation controllers,
// and the settings helper's walk that also enters the selected tab.
#include "permission/LBXAlertAction.h"
#include "permission/LBXAlertCategories.h"
#include "permission/LBXPermissionSetting.h"
#include "permission_test_support.h"

namespace quorvane {
namespace {

using platform::headless::HeadlessNavigationController;
using platform::headless::HeadlessScreen;
using platform::headless::HeadlessTabBarController;
using namespace testing;

using WindowWalk = PrivacyTest;

TEST_F(WindowWalk, FollowsPresentedControllersThenNavigationTops) {
    auto navigation = HeadlessNavigationController::create();
    auto inner = HeadlessScreen::create();
    navigation->pushViewController(HeadlessScreen::create());
    navigation->pushViewController(inner);
    root->present(navigation, false, nullptr);
    EXPECT_EQ(UIWindow_LBXHierarchy::topMostController(*window), navigation);
    EXPECT_EQ(UIWindow_LBXHierarchy::currentViewController(*window), inner);

    auto modal = HeadlessScreen::create();
    navigation->present(modal, false, nullptr);
    EXPECT_EQ(UIWindow_LBXHierarchy::currentViewController(*window), modal);
    // An alert on top is the last presented controller: the walk does not stop below it, and as an
    // alert cannot present, there is nothing to present from.
    modal->present(std::make_shared<platform::AlertController>("t", "m", platform::AlertControllerStyle::Alert), false,
                   nullptr);
    EXPECT_EQ(UIWindow_LBXHierarchy::topMostController(*window), nullptr);
    EXPECT_EQ(UIWindow_LBXHierarchy::currentViewController(*window), nullptr);
    EXPECT_EQ(LBXAlertAction::getTopViewController(), nullptr);
    modal->dismiss(false, nullptr);
    EXPECT_EQ(UIWindow_LBXHierarchy::currentViewController(*window), modal);
}

TEST_F(WindowWalk, SettingsWalkStartsAtTheDelegateWindowAndEntersTheSelectedTabItsAlertCompletes) {
    auto tabs = HeadlessTabBarController::create();
    auto navigation = HeadlessNavigationController::create();
    auto top = HeadlessScreen::create();
    navigation->pushViewController(top);
    tabs->setViewControllers({HeadlessScreen::create(), navigation});
    tabs->setSelectedIndex(1);
    auto appWindow = std::make_shared<platform::ControllerWindow>();
    appWindow->setRootViewController(tabs);
    platform::ApplicationWindows::setDelegateWindow(appWindow);

    EXPECT_EQ(LBXPermissionSetting::currentTopViewController(), top);
    EXPECT_EQ(LBXPermissionSetting::getTopViewController(), root);  // the key window's walk

    // Its alert comes up on the key window's walk; the cancel button calls the completion and opens nothing.
    int completions = 0;
    LBXPermissionSetting::showAlertToDislayPrivacySettingWithTitle("t", "m", "no", "go", [&] { ++completions; });
    auto alert = presentedAlert();
    ASSERT_TRUE(alert);
    alert->tap("no");
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(device.urlOpener->opened().empty());
}

}  // namespace
}  // namespace quorvane
