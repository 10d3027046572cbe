// The scanning screen through the façade: layout, live scanning, cancel, the album path and its
// permission, and exactly one outcome whichever way the screen ends.
#include "api/QuorvaneApiManager.h"
#include "foundation/log.h"
#include "scan_test_support.h"

namespace quorvane::testing {
namespace {

class ScanScreen : public ScanTest {
protected:
    // The façade's scanner, on screen.
    std::shared_ptr<ApiScanViewController> openScanner() {
        QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
        auto screen = presentedScanner();
        EXPECT_TRUE(screen);
        return screen;
    }
    // A camera frame with the code in the middle of the scanning frame.
    platform::VideoFrame codeFrame(const std::string& text) const {
        Canvas canvas(375, 812, 230);
        canvas.paint(qrCode(text, 220), 78, 240);
        return canvas.frame();
    }
    platform::VideoFrame blankFrame() const { return Canvas(375, 812, 230).frame(); }
    void expectOneOutcome(const std::string& kind, const Value& value) {
        ASSERT_EQ(outcomes.calls.size(), 1u);
        EXPECT_EQ(outcomes.calls[0].first, kind);
        EXPECT_EQ(outcomes.calls[0].second, value);
        EXPECT_FALSE(host->presentedViewController()) << "the scanner dismisses itself";
        EXPECT_FALSE(camera->isRunning());
    }
    Canvas photoCanvas(const std::string& text) const {
        Canvas canvas(640, 480, 220);
        canvas.paint(qrCode(text, 260), 190, 110);
        return canvas;
    }
};

TEST_F(ScanScreen, ButtonsSitUnderTheNotchOrTheStatusBar) {
    auto notched = openScanner();
    ASSERT_TRUE(notched && notched->cancelButton() && notched->albumButton());
    auto cancel = notched->cancelButton()->frame();
    auto albumFrame = notched->albumButton()->frame();
    EXPECT_EQ((std::vector<double>{cancel.x, cancel.y, cancel.width, cancel.height}), (std::vector<double>{8, 52, 60, 44}));
    EXPECT_EQ((std::vector<double>{albumFrame.x, albumFrame.y, albumFrame.width, albumFrame.height}),
              (std::vector<double>{323, 52, 44, 44}));
    EXPECT_EQ(notched->cancelButton()->title(), "取消");
    EXPECT_EQ(notched->albumButton()->title(), "相册");
    EXPECT_EQ(notched->albumButton()->tintColor().red, 1.0);
    EXPECT_EQ(notched->cameraInvokeMsg(), "相机启动中");
    EXPECT_FALSE(notched->shouldAutorotate());
    notched->cancelButton()->tap();

    useScreen(375, 667);
    auto plain = openScanner();
    ASSERT_TRUE(plain && plain->cancelButton());
    EXPECT_EQ(plain->cancelButton()->frame().y, 28);
    EXPECT_TRUE(ApiScanViewController::isNotchedScreen(812, 375));  // landscape: ratio 216
    EXPECT_FALSE(ApiScanViewController::isNotchedScreen(320, 480));
}

// While the interest rect is open only the scanning frame is read (the album case below reads a code
// inside it); the first code read ends the scan, and no frame is taken after it.
TEST_F(ScanScreen, FirstCodeReadInACameraFrameSucceedsOnce) {
    Canvas corner(375, 812, 230);
    corner.paint(qrCode("corner", 150), 210, 640);  // below the scanning frame
    auto screen = openScanner();
    ASSERT_TRUE(screen && screen->isOpenInterestRect() && screen->cameraInvokeLabel());
    EXPECT_EQ(screen->cameraInvokeLabel()->text(), "相机启动中");
    camera->enqueueFrame(corner.frame());
    ASSERT_TRUE(waitFor([&] { return camera->framesDelivered() == 1; }));
    settle();
    EXPECT_TRUE(outcomes.calls.empty());
    EXPECT_FALSE(screen->cameraInvokeLabel()) << "the start-up message goes once the camera runs";

    screen->setIsOpenInterestRect(false);
    camera->enqueueFrames({blankFrame(), corner.frame(), codeFrame("second")});
    ASSERT_TRUE(waitFor([&] { return !outcomes.calls.empty(); }));
    settle();
    expectOneOutcome("success", "corner");
    EXPECT_EQ(camera->framesDelivered(), 3);
}

TEST_F(ScanScreen, CancelReportsOnceAndStopsScanning) {
    auto screen = openScanner();
    ASSERT_TRUE(screen);
    auto cancel = screen->cancelButton();
    cancel->tap();
    cancel->tap();
    camera->enqueueFrame(codeFrame("too late"));
    settle();
    expectOneOutcome("fail", "取消了");
    EXPECT_EQ(camera->framesDelivered(), 0);
}

// The album covers the scanner; a turned, noisy code succeeds, a photo without a code fails, and of a
// photo with two codes only the first result counts.
TEST_F(ScanScreen, AlbumPhotoGivesItsFirstCodeOrFails) {
    Canvas two(760, 380);
    two.paint(qrCode("one", 230), 40, 70).paint(qrCode("two", 230), 460, 70);
    auto twoCodes = photo(two);
    std::optional<std::string> first;
    LBXScanNative::recognizeImage(twoCodes, [&](const std::vector<LBXScanResult>& array) {
        ASSERT_EQ(array.size(), 2u);
        first = array[0].strScanned;
    });
    ASSERT_TRUE(first);
    const std::tuple<platform::ImagePtr, const char*, Value> cases[] = {
        {photo(photoCanvas("from the album"), "jpg", 21, 20), "success", "from the album"},
        {photo(Canvas(500, 400, 180), "jpg", 0, 25), "fail", "照片中未识别二维码"},
        {twoCodes, "success", *first}};
    for (const auto& [image, kind, value] : cases) {
        SCOPED_TRACE(value.dump());
        outcomes.calls.clear();
        auto screen = openScanner();
        ASSERT_TRUE(screen);
        screen->albumButton()->tap();
        auto picker = presentedPicker(screen);
        ASSERT_TRUE(picker);
        EXPECT_TRUE(picker->allowsEditing());
        EXPECT_EQ(picker->modalPresentationStyle(), platform::ScanImagePicker::FullScreen);
        EXPECT_FALSE(camera->isRunning()) << "the picker covers the scanner";
        picker->finishPicking({image, nullptr});
        expectOneOutcome(kind, value);
        EXPECT_FALSE(screen->presentedViewController());
    }
}

TEST_F(ScanScreen, CancelledAlbumReturnsToScanning) {
    foundation::LogCapture log;
    auto screen = openScanner();
    ASSERT_TRUE(screen);
    screen->albumButton()->tap();
    auto picker = presentedPicker(screen);
    ASSERT_TRUE(picker);
    picker->cancel();
    EXPECT_TRUE(log.contains("cancel"));
    EXPECT_FALSE(screen->presentedViewController());
    EXPECT_TRUE(outcomes.calls.empty());
    EXPECT_EQ(host->presentedViewController(), screen);
    camera->enqueueFrame(codeFrame("after the album"));
    ASSERT_TRUE(waitFor([&] { return !outcomes.calls.empty(); }));
    expectOneOutcome("success", "after the album");
    EXPECT_EQ(screen->view()->subviews().size(), 2u) << "the buttons are not added twice";
}

// Refused before: the settings alert; refused at the prompt just shown, or no library at all: no
// alert, no picker, no outcome, and the scanner goes on.
TEST_F(ScanScreen, RefusedOrMissingPhotoLibraryPresentsNoPicker) {
    privacy.authority->setStatus(platform::PrivacyKind::Photos, platform::StatusDenied);
    auto screen = openScanner();
    ASSERT_TRUE(screen);
    screen->albumButton()->tap();
    auto alert = std::dynamic_pointer_cast<platform::AlertController>(screen->presentedViewController());
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->title(), "提示");
    EXPECT_EQ(alert->message(), "没有相册权限，是否前往设置");
    auto actions = alert->actions();
    ASSERT_EQ(actions.size(), 2u);
    EXPECT_EQ(actions[0].title, "取消");
    EXPECT_EQ(actions[1].title, "设置");
    EXPECT_TRUE(album->pickers().empty());
    EXPECT_TRUE(outcomes.calls.empty());
    alert->tap("取消");

    privacy.authority->setStatus(platform::PrivacyKind::Photos, platform::StatusNotDetermined);
    privacy.authority->scriptAnswer(platform::PrivacyKind::Photos, false);
    screen->albumButton()->tap();
    ASSERT_TRUE(waitFor([&] { return privacy.authority->prompts(platform::PrivacyKind::Photos) == 1; }));
    settle();
    EXPECT_FALSE(screen->presentedViewController());

    privacy.authority->setStatus(platform::PrivacyKind::Photos, platform::StatusAuthorized);
    album->setSourceTypeAvailable(false);
    screen->albumButton()->tap();
    EXPECT_FALSE(screen->presentedViewController());
    EXPECT_TRUE(camera->isRunning());
    EXPECT_TRUE(album->pickers().empty());
    EXPECT_TRUE(outcomes.calls.empty());
}

TEST_F(ScanScreen, ResultsWithoutTextFail) {
    using Results = std::optional<std::vector<LBXScanResult>>;
    for (const Results& results : {Results{}, Results{std::vector<LBXScanResult>{}},
                                   Results{std::vector<LBXScanResult>{{std::nullopt, "QRCode"}, {"later", "QRCode"}}}}) {
        outcomes.calls.clear();
        auto screen = openScanner();
        ASSERT_TRUE(screen);
        screen->scanResultWithArray(results);
        expectOneOutcome("fail", "识别失败");
    }
}

}  // namespace
}  // namespace quorvane::testing
