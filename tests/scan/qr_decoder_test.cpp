// Recognition itself: codes in still photos (turned, noisy, several, none) and in camera frames.
#include "device/QrDecoder.h"
#include "device/QrScanStyle.h"
#include "scan_test_support.h"

namespace quorvane::testing {
namespace {

std::vector<LBXScanResult> recognize(const platform::ImagePtr& image) {
    std::vector<LBXScanResult> found;
    bool answered = false;
    LBXScanNative::recognizeImage(image, [&](const std::vector<LBXScanResult>& array) {
        found = array;
        answered = true;
    });
    EXPECT_TRUE(answered);
    return found;
}

TEST(QrDecoder, ReadsEveryCodeFromPlainTurnedAndNoisyPhotosAndNoneWithout) {
    const std::string text = "https://example.com/扫码?id=42";
    Canvas canvas(600, 500, 235);
    canvas.paint(qrCode(text, 240), 180, 130);
    struct Case {
        const char* suffix;
        double degrees, noise;
    };
    for (auto c : {Case{"png", 0, 0}, Case{"jpg", 33, 0}, Case{"jpg", 0, 35}, Case{"png", -72, 25}}) {
        SCOPED_TRACE(std::string(c.suffix) + " " + std::to_string(c.degrees) + "° noise " + std::to_string(c.noise));
        auto found = recognize(photo(canvas, c.suffix, c.degrees, c.noise));
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0].strScanned, text);
        EXPECT_EQ(found[0].strBarCodeType, "QRCode");
    }

    Canvas two(700, 360);
    two.paint(qrCode("left code", 220), 40, 70).paint(qrCode("right code", 220), 420, 70);
    auto found = recognize(photo(two));
    ASSERT_EQ(found.size(), 2u);
    std::vector<std::string> texts{*found[0].strScanned, *found[1].strScanned};
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(texts, (std::vector<std::string>{"left code", "right code"}));

    EXPECT_TRUE(recognize(photo(Canvas(400, 300, 200), "jpg", 0, 30)).empty());
    EXPECT_TRUE(recognize(std::make_shared<platform::Image>(platform::Image{10, 10, "png", "<html>not found</html>"})).empty());
    EXPECT_TRUE(recognize(nullptr).empty());
}

// The scan code type chooses the symbologies; a view with the full row stride reads a region.
TEST(QrDecoder, ReadsTheChosenSymbologiesInAStridedRegionOfAFrame) {
    auto ean = ZXing::MultiFormatWriter(ZXing::BarcodeFormat::EAN13).setMargin(10).encode("4006381333931", 300, 120);
    Canvas bars(360, 160);
    bars.paint(ean, 30, 20);
    LumaView view{bars.pixels.data(), bars.width, bars.height, bars.width};
    EXPECT_TRUE(recognizeLuma(view, LBXScanCodeTypeQRCode, false).empty());
    auto linear = recognizeLuma(view, LBXScanCodeTypeBarCodes, false);
    ASSERT_EQ(linear.size(), 1u);
    EXPECT_EQ(linear[0].strScanned, "4006381333931");

    // The code sits in the right half only.
    Canvas canvas(640, 300);
    canvas.paint(qrCode("right half", 220), 380, 40);
    LumaView right{canvas.pixels.data() + 320, 320, 300, canvas.width};
    EXPECT_TRUE(recognizeLuma(right, LBXScanCodeTypeBarCodes, false).empty());
    EXPECT_EQ(recognizeLuma(right, LBXScanCodeTypeAll, false).size(), 1u);
    auto found = recognizeLuma(right, LBXScanCodeTypeQRCode, false);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].strScanned, "right half");
    LumaView left{canvas.pixels.data(), 320, 300, canvas.width};
    EXPECT_TRUE(recognizeLuma(left, LBXScanCodeTypeQRCode, false).empty());
}

class ScanStyle : public ScanTest {};

TEST_F(ScanStyle, ZhiFuBaoAnimatesTheNetImageFromItsBundleWithOffsetsFollowingTheScreenHeight) {
    auto tall = StyleDIY::ZhiFuBaoStyle();
    EXPECT_EQ(tall.centerUpOffset, 60.0);
    EXPECT_EQ(tall.xScanRetangleOffset, 30.0);
    EXPECT_EQ(tall.anmiationStyle, LBXScanViewAnimationStyle_NetGrid);
    EXPECT_FALSE(tall.isNeedShowRetangle);
    EXPECT_EQ(tall.notRecoginitonArea.alpha, 0.6);
    ASSERT_TRUE(tall.animationImage);
    EXPECT_GT(tall.animationImage->width, 0);
    EXPECT_EQ(tall.animationImage->format, "png");
    EXPECT_FALSE(scanBundleImageNamed("CodeScan.bundle/no_such_image"));
    useScreen(320, 480);
    auto compact = StyleDIY::ZhiFuBaoStyle();
    EXPECT_EQ(compact.centerUpOffset, 40.0);
    EXPECT_EQ(compact.xScanRetangleOffset, 20.0);
    useScreen(320, 481);
    EXPECT_EQ(StyleDIY::ZhiFuBaoStyle().centerUpOffset, 60.0);
}

}  // namespace
}  // namespace quorvane::testing
