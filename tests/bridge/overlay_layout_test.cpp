// The upload overlay takes its layout from the bundle's interface file: the outlets come from the
// file, and without the file the overlay is bare and says which file is missing.
#include "bridge_test_support.h"
#include "device/QrScanStyle.h"
#include "foundation/log.h"

namespace quorvane::test {
namespace {

class OverlayLayout : public ::testing::Test {
protected:
    void SetUp() override { device = platform::headless::installHeadlessDevice(); }
    void TearDown() override { setScanResourceDirectory(std::nullopt); }
    platform::headless::HeadlessDevice device;
};

TEST_F(OverlayLayout, OutletsComeFromTheFileAndAMissingFileLeavesABareOverlay) {
    auto view = UploadingView::initWithCancelCallback([] {});
    ASSERT_TRUE(view->uploadValue() && view->uploadBarBgView() && view->cancelButton());
    EXPECT_EQ(view->uploadValue()->text(), "0%");
    EXPECT_EQ(view->uploadBarBgView()->frame().width, 199);
    // The panel is centred on the 390 × 844 screen.
    auto panel = view->uploadValue()->superview();
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->frame().x, (390 - panel->frame().width) / 2);
    EXPECT_EQ(panel->frame().y, (844 - panel->frame().height) / 2);

    foundation::ScopedTempDir empty;
    setScanResourceDirectory(empty.path());
    foundation::LogCapture log;
    int cancels = 0;
    auto upload = UploadingView::initWithCancelCallback([&] { ++cancels; });
    EXPECT_TRUE(log.contains("Could not load the interface file QuorvaneApiSDKImage.bundle/UploadingView"));
    EXPECT_TRUE(upload->subviews().empty());
    EXPECT_FALSE(upload->uploadValue());
    EXPECT_FALSE(upload->cancelButton());
    EXPECT_EQ(upload->frame().width, 390);
    upload->uploadingViewUpdate(50);  // harmless without a label or a track
    upload->uploadingViewRemove();
    EXPECT_EQ(cancels, 0);
}

}  // namespace
}  // namespace quorvane::test
