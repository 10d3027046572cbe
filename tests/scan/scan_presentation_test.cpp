// How the façade's scanner is shown: the host's own controller takes the full-screen style, and
// the screen's buttons keep their actions with the button category.
#include "api/QuorvaneApiManager.h"
#include "device/UIButtonBlock.h"
#include "scan_test_support.h"

namespace quorvane::testing {
namespace {

using ScanPresentation = ScanTest;

TEST_F(ScanPresentation, HostControllerTakesTheFullScreenStyleAndTheScannerKeepsItsOwn) {
    EXPECT_EQ(host->modalPresentationStyle(), platform::kModalPresentationAutomatic);
    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    auto screen = presentedScanner();
    ASSERT_TRUE(screen);
    EXPECT_EQ(host->modalPresentationStyle(), 0);
    EXPECT_EQ(screen->modalPresentationStyle(), platform::kModalPresentationAutomatic);
}

TEST_F(ScanPresentation, ButtonsRunTheActionsKeptOnThem) {
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
