// The façade's device services on the headless device: vibration, delay, clipboard, alerts, HUDs.
#include <gtest/gtest.h>

#include <atomic>

#include "api/QuorvaneApiManager.h"
#include "api_test_support.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"

namespace quorvane {
namespace {

using platform::kSystemSoundID_Vibrate;
using platform::headless::HeadlessPresenter;

class Facade : public ::testing::Test {
protected:
    platform::headless::HeadlessDevice device = platform::headless::installHeadlessDevice();
    std::shared_ptr<HeadlessPresenter> screen = HeadlessPresenter::create();

    int plays() const { return device.systemSound->plays(kSystemSoundID_Vibrate); }
    // After the loop has stopped and the last playback ended, no further play may happen.
    void expectLoopStopped() {
        ASSERT_TRUE(testing::waitFor([&] { return device.systemSound->idle(); }));
        int settled = plays();
        testing::settle();
        EXPECT_EQ(plays(), settled);
        EXPECT_FALSE(device.systemSound->hasCompletion(kSystemSoundID_Vibrate));
    }
};

TEST_F(Facade, VibrationLoopsUntilStopped) {
    QuorvaneApiManager::startVibrate();
    ASSERT_TRUE(testing::waitFor([&] { return plays() >= 4; }));
    QuorvaneApiManager::stopVibrate();
    EXPECT_EQ(device.systemSound->disposals(kSystemSoundID_Vibrate), 1);
    expectLoopStopped();

    QuorvaneApiManager::startVibrate();
    QuorvaneApiManager::startVibrate();
    EXPECT_EQ(device.systemSound->registrations(kSystemSoundID_Vibrate), 3);
    QuorvaneApiManager::stopVibrate();
    expectLoopStopped();
}

TEST_F(Facade, VibrateWithDurationStopsByItself) {
    QuorvaneApiManager::vibrateWithDuration(0.5f);
    ASSERT_TRUE(testing::waitFor([&] { return device.systemSound->disposals(kSystemSoundID_Vibrate) == 1; }));
    EXPECT_GE(plays(), 2) << "the vibration looped before it stopped";
    expectLoopStopped();
}

TEST_F(Facade, GCDDelayRunsOnceOffTheMainThread) {
    std::atomic<int> runs{0};
    std::atomic<bool> onMain{true};
    QuorvaneApiManager::GCDDelay(0.01f, [&] {
        onMain = foundation::isMainThread();
        ++runs;
    });
    QuorvaneApiManager::GCDDelay(-1.0f, [&] { ++runs; });  // a past delay runs at once
    QuorvaneApiManager::GCDDelay(0.01f, nullptr);
    ASSERT_TRUE(testing::waitFor([&] { return runs == 2; }));
    testing::settle();
    EXPECT_EQ(runs, 2);
    EXPECT_FALSE(onMain);
}

TEST_F(Facade, CopyMessageShowsTheAlertAsATextHudOnlyWhenGiven) {
    QuorvaneApiManager::copyMessage("first", "", screen);
    QuorvaneApiManager::copyMessage("second", std::nullopt, screen);
    EXPECT_EQ(device.pasteboard->string(), "second");
    EXPECT_TRUE(screen->huds().empty());

    QuorvaneApiManager::copyMessage("third", "复制成功", screen);
    EXPECT_EQ(device.pasteboard->string(), "third");
    ASSERT_EQ(screen->huds().size(), 1u);
    auto hud = screen->huds()[0];
    EXPECT_EQ(hud->detailsText(), "复制成功");
    EXPECT_EQ(hud->mode(), platform::Hud::Text);
    EXPECT_TRUE(testing::waitFor([&] { return hud->isRemoved(); }));

    QuorvaneApiManager::copyMessage(std::nullopt, "x", nullptr);  // absent text and controller
    EXPECT_EQ(device.pasteboard->string(), std::nullopt);
}

TEST_F(Facade, JumpToSettingOffersTheSettingsPage) {
    QuorvaneApiManager::jumpToSetting(screen);
    auto alert = screen->lastAlert();
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "定位服务未开启");
    EXPECT_EQ(alert->message(), "请在设置-隐私中开启“定位”服务");
    EXPECT_EQ(alert->preferredStyle(), platform::AlertControllerStyle::Alert);
    auto actions = alert->actions();
    ASSERT_EQ(actions.size(), 2u);
    EXPECT_EQ(actions[0].title, "暂不");
    EXPECT_EQ(actions[1].title, "前往");

    EXPECT_TRUE(alert->tap("暂不"));
    EXPECT_TRUE(device.urlOpener->opened().empty());
    EXPECT_EQ(screen->presentedViewController(), nullptr);

    QuorvaneApiManager::jumpToSetting(screen);
    EXPECT_TRUE(screen->lastAlert()->tap("前往"));
    auto opened = device.urlOpener->opened();
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].url, platform::kOpenSettingsURLString);
    EXPECT_TRUE(opened[0].opened);
    EXPECT_EQ(screen->presentedViewController(), nullptr);

    QuorvaneApiManager::jumpToSetting(nullptr);  // nothing to present from: nothing happens
}

TEST_F(Facade, TwoButtonAlertLeavesOutAnAbsentLeftButton) {
    int left = 0, right = 0;
    QuorvaneApiManager::presentAlertControllerWithController(screen, "t", std::nullopt, std::nullopt, "OK",
                                                             [&] { ++left; }, [&] { ++right; });
    auto alert = screen->lastAlert();
    ASSERT_EQ(alert->actions().size(), 1u);
    EXPECT_FALSE(alert->tap(1));
    EXPECT_TRUE(alert->tap(0));
    EXPECT_EQ(right, 1);
    EXPECT_EQ(left, 0);

    QuorvaneApiManager::presentAlertControllerWithController(screen, "t", "m", "L", "R", nullptr, nullptr);
    EXPECT_TRUE(screen->lastAlert()->tap("L"));  // absent blocks: tapping is harmless
}

TEST_F(Facade, WeChatOpensWhenInstalledElseAsksToInstall) {
    QuorvaneApiManager::sendMessage("hi", screen);
    EXPECT_EQ(device.pasteboard->string(), "hi");
    EXPECT_FALSE(QuorvaneApiManager::isWeChatInstalled());
    EXPECT_TRUE(device.urlOpener->opened().empty());
    ASSERT_EQ(screen->huds().size(), 1u);
    EXPECT_EQ(screen->huds()[0]->detailsText(), "请先安装微信");

    device.urlOpener->installScheme("wechat");
    EXPECT_TRUE(QuorvaneApiManager::isWeChatInstalled());
    QuorvaneApiManager::openWeChat(screen);
    ASSERT_EQ(device.urlOpener->opened().size(), 1u);
    EXPECT_EQ(device.urlOpener->opened()[0].url, "wechat:");
    EXPECT_EQ(screen->huds().size(), 1u);
}

TEST_F(Facade, SpinnerHudStaysUntilHidden) {
    auto hud = QuorvaneApiManager::showMBProgressHUDIndeterminateWithContent("上传中", screen);
    ASSERT_EQ(screen->huds().size(), 1u);
    EXPECT_EQ(hud, screen->huds()[0]);
    EXPECT_EQ(hud->mode(), platform::Hud::Indeterminate);
    EXPECT_EQ(hud->detailsText(), "上传中");
    EXPECT_FALSE(hud->isHidden());
    QuorvaneApiManager::hideMBProgressHUD(hud);
    EXPECT_TRUE(hud->isRemoved());
    QuorvaneApiManager::hideMBProgressHUD(nullptr);
    EXPECT_NE(QuorvaneApiManager::showMBProgressHUDIndeterminateWithContent("x", nullptr), nullptr);
}

}  // namespace
}  // namespace quorvane
