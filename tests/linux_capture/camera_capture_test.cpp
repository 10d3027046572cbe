// The scanning screen and the camera photo on the Linux camera, fed by FFmpeg inputs: a code
// written by ZXing into a picture that plays as the camera is read; a photo keeps the input's size;
// a camera that cannot be opened or gives no pictures ends in the failure path once.
#define ZX_USE_UTF8 1
#include <vips/vips8>
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

#include "api/QuorvaneApiManager.h"
#include "capture_test_support.h"
#include "device/QrDecoder.h"
#include "platform/presenter.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// A gray PNG of `width` × `height`, white, with the QR code of `text` where the scanning frame of a
// phone-shaped screen falls on the picture (a little above the middle).
std::string writeCodePicture(const std::string& path, const std::string& text, int width, int height) {
    auto code = ZXing::MultiFormatWriter(ZXing::BarcodeFormat::QRCode).setEncoding(ZXing::CharacterSet::UTF8).setMargin(2).encode(text, 150, 150);
    std::vector<std::uint8_t> pixels(std::size_t(width) * height, 255);
    int x0 = (width - code.width()) / 2, y0 = height * 43 / 100 - code.height() / 2;
    for (int row = 0; row < code.height(); ++row)
        for (int col = 0; col < code.width(); ++col)
            if (code.get(col, row)) pixels[std::size_t(y0 + row) * width + x0 + col] = 0;
    initImageLibrary();
    vips::VImage::new_from_memory(pixels.data(), pixels.size(), width, height, 1, VIPS_FORMAT_UCHAR).write_to_file(path.c_str());
    return path;
}

// Opens, then ends before its first picture.
constexpr const char* kNoPictures = "lavfi:testsrc=size=64x48:rate=10,trim=end_frame=0";

class CameraCaptureTest : public testing::LinuxCaptureTest {};

using Calls = std::vector<std::pair<std::string, Value>>;

// The scan ends once: with the code played as the camera, or unread when the camera gives no picture.
TEST_F(CameraCaptureTest, ScanEndsOnceWithTheCodePlayedAsTheCameraOrUnread) {
    std::string picture = writeCodePicture(tempDir.path() + "/code.png", "https://quorvane.invalid/扫码?id=23", 640, 480);
    const std::pair<std::string, Calls> cases[] = {
        {"image2:" + picture + "?loop=1&framerate=15", {{"success", "https://quorvane.invalid/扫码?id=23"}}},
        {kNoPictures, {{"fail", "识别失败"}}}};
    for (const auto& [input, calls] : cases) {
        SCOPED_TRACE(input);
        install("lavfi:anullsrc", input);
        outcomes.calls.clear();
        QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
        ASSERT_TRUE(testing::waitFor([&] { return !outcomes.calls.empty(); }, 10s));
        testing::runFor(200ms);
        EXPECT_EQ(outcomes.calls, calls);
        EXPECT_FALSE(capture.camera->isRunning());
        EXPECT_EQ(host->presentedViewController(), nullptr);
    }
    // A photo from the camera without pictures is cancelled.
    QuorvaneApiManager::getImageByCameraCompressed(0, host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(testing::waitFor([&] { return outcomes.calls.size() > 1; }, 10s));
    testing::runFor(200ms);
    EXPECT_EQ(outcomes.calls, (Calls{{"fail", "识别失败"}, {"fail", "Cancel"}}));
}

TEST_F(CameraCaptureTest, PhotoKeepsTheInputsSize) {
    install("lavfi:anullsrc", "lavfi:testsrc=size=320x240:rate=5");
    auto facts = device.device->facts();
    facts.screen.width = 320;  // the façade scales photos to the screen's width
    device.device->setFacts(facts);
    QuorvaneApiManager::getImageByCameraCompressed(1, host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(testing::waitFor([&] { return !outcomes.calls.empty(); }, 10s));
    ASSERT_EQ(outcomes.calls.size(), 1u);
    ASSERT_EQ(outcomes.calls[0].first, "success");
    const Value& photo = outcomes.calls[0].second.at(0);
    EXPECT_EQ(photo["width"], 320.0);
    EXPECT_EQ(photo["height"], 240.0);
    initImageLibrary();
    auto saved = vips::VImage::new_from_file(photo["path"].get<std::string>().c_str());
    EXPECT_EQ(saved.width(), 320);
    EXPECT_EQ(saved.height(), 240);
}

TEST_F(CameraCaptureTest, MissingCameraIsRefused) {
    install("lavfi:anullsrc", "v4l2:/nonexistent/video0");
    EXPECT_FALSE(capture.camera->isAvailable());
    QuorvaneApiManager::getImageByCameraCompressed(1, host, outcomes.success(), outcomes.fail());
    ASSERT_TRUE(testing::waitFor([&] { return !outcomes.calls.empty(); }));
    EXPECT_EQ(outcomes.calls, (Calls{{"fail", "NoCameraPermission"}}));

    QuorvaneApiManager::scanWithController(host, outcomes.success(), outcomes.fail());
    std::shared_ptr<platform::AlertController> alert;
    ASSERT_TRUE(testing::waitFor([&] {
        alert = std::dynamic_pointer_cast<platform::AlertController>(host->presentedViewController());
        return alert != nullptr;
    }));
    EXPECT_EQ(alert->title(), "提示");
    EXPECT_EQ(alert->message(), "没有相机权限，是否前往设置");
    EXPECT_EQ(outcomes.calls.size(), 1u);
}

}  // namespace
}  // namespace quorvane
