// The façade's scan operation behind the camera gate, and the scanner it presents: the host's own
// controller takes the full-screen style, and the screen's buttons keep their actions with the
// button category.
#include "api/QuorvaneApiManager.h"
#include "device/UIButtonBlock.h"
#include "scan_test_support.h"

namespace quorvane::testing {
namespace {

class FacadeScan : public ScanTest {};

TEST_F(FacadeScan, CameraGrantedAtThePromptPresentsTheConfiguredScanner) {
    privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusNotDetermined);
    privacy.authority->scriptAnswer(platform::PrivacyKind::Camera, true);
    EXPECT_EQ(host->modalPresentationStyle(), platform::kModalPresentationAutomatic);
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(waitFor([&] { return presentedScanner() != nullptr; }));
    auto screen = presentedScanner();
    EXPECT_EQ(host->modalPresentationStyle(), 0);
    EXPECT_EQ(screen->modalPresentationStyle(), platform::kModalPresentationAutomatic);
    EXPECT_TRUE(screen->isOpenInterestRect());
    EXPECT_EQ(screen->libraryType(), 0);
    EXPECT_EQ(screen->scanCodeType(), 0);
    EXPECT_EQ(screen->style().centerUpOffset, 60.0);
    EXPECT_EQ(screen->style().photoframeAngleStyle, 0);
    EXPECT_TRUE(screen->style().animationImage) << "the façade's own bundle image";
    EXPECT_TRUE(camera->isRunning());
    EXPECT_TRUE(outcomes.calls.empty());
}

// Refused before: the settings alert and no scanner; refused at the prompt: nothing at all.
TEST_F(FacadeScan, RefusedCameraPresentsNoScannerAndReportsNothing) {
    privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusDenied);
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    auto alert = std::dynamic_pointer_cast<platform::AlertController>(host->presentedViewController());
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->message(), "没有相机权限，是否前往设置");
    alert->tap("取消");
    ASSERT_FALSE(host->presentedViewController());

    privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusNotDetermined);
    privacy.authority->scriptAnswer(platform::PrivacyKind::Camera, false);
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(waitFor([&] { return privacy.authority->prompts(platform::PrivacyKind::Camera) == 1; }));
    settle();
    EXPECT_FALSE(host->presentedViewController());
    EXPECT_TRUE(outcomes.calls.empty());
    EXPECT_EQ(camera->startCount(), 0);
}

TEST_F(FacadeScan, ScannerWithoutACameraStillOffersTheAlbum) {
    camera->setAvailable(false);
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    auto screen = presentedScanner();
    ASSERT_TRUE(screen);
    EXPECT_FALSE(screen->isScanning());
    screen->albumButton()->tap();
    auto picker = std::dynamic_pointer_cast<platform::ScanImagePicker>(screen->presentedViewController());
    ASSERT_TRUE(picker);
    Canvas canvas(400, 400);
    canvas.paint(qrCode("no camera needed", 260), 70, 70);
    picker->finishPicking({photo(canvas), nullptr});
    ASSERT_EQ(outcomes.calls.size(), 1u);
    EXPECT_EQ(outcomes.calls[0].second, "no camera needed");
}

TEST_F(FacadeScan, ButtonsRunTheActionsKeptOnThem) {
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    auto screen = presentedScanner();
    ASSERT_TRUE(screen && screen->cancelButton() && screen->albumButton());
    // The category's own target operation finds each button's action on the button.
    UIButton_Block::action(*screen->cancelButton());
    ASSERT_EQ(outcomes.calls.size(), 1u);
    EXPECT_EQ(outcomes.calls[0], (std::pair<std::string, Value>{"fail", "取消了"}));
    EXPECT_FALSE(host->presentedViewController());
}

}  // namespace
}  // namespace quorvane::testing
