#pragma once
// A headless phone for the scanning tests: a 375 × 812 screen, camera and photos authorised, a
// camera that plays the frames a test queues, a photo chooser, and a host screen in the key window.
// Codes are written with ZXing-C++ and photos encoded with libvips, so recognition runs for real.
#define ZX_USE_UTF8 1
#include <gtest/gtest.h>
#include <vips/vips8>
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "device/ApiScanViewController.h"
#include "foundation/dispatch.h"
#include "support/call_outcomes.h"
#include "foundation/value.h"
#include "platform/capture_camera.h"
#include "platform/headless/headless_capture_camera.h"
#include "platform/headless/headless_containers.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_scan_album.h"
#include "platform/scan_album.h"
#include "platform/window_hierarchy.h"

namespace quorvane::testing {

inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    return foundation::MainLoop::instance().runUntil(done, timeout);
}

// Turns the main loop for a while, so a callback or frame that should not come would show.
inline void settle() {
    foundation::MainLoop::instance().runUntil([] { return false; }, std::chrono::milliseconds(200));
}

// An 8-bit gray picture, white unless painted.
struct Canvas {
    int width, height;
    std::vector<std::uint8_t> pixels;
    Canvas(int w, int h, std::uint8_t fill = 255) : width(w), height(h), pixels(std::size_t(w) * h, fill) {}

    // Paints the code's modules with the top-left corner at (x, y).
    Canvas& paint(const ZXing::BitMatrix& code, int x, int y) {
        for (int row = 0; row < code.height(); ++row)
            for (int col = 0; col < code.width(); ++col)
                if (x + col < width && y + row < height)
                    pixels[std::size_t(y + row) * width + x + col] = code.get(col, row) ? 0 : 255;
        return *this;
    }
    platform::VideoFrame frame() const { return platform::VideoFrame::gray(width, height, pixels); }
};

inline ZXing::BitMatrix qrCode(const std::string& text, int size) {
    return ZXing::MultiFormatWriter(ZXing::BarcodeFormat::QRCode).setEncoding(ZXing::CharacterSet::UTF8).setMargin(2).encode(text, size, size);
}

// The canvas as an encoded photo ("jpg" or "png"), turned by `degrees` and with Gaussian noise of
// deviation `noise` (0: none). The noise is seeded, so a photo that decodes once always does.
inline platform::ImagePtr photo(const Canvas& canvas, const std::string& suffix = "png", double degrees = 0,
                                double noise = 0) {
    initImageLibrary();
    auto image = vips::VImage::new_from_memory(const_cast<std::uint8_t*>(canvas.pixels.data()), canvas.pixels.size(),
                                               canvas.width, canvas.height, 1, VIPS_FORMAT_UCHAR);
    if (degrees != 0)
        image = image.similarity(vips::VImage::option()->set("angle", degrees)->set("background", std::vector<double>{255}));
    if (noise > 0)
        image = image + vips::VImage::gaussnoise(image.width(), image.height(), vips::VImage::option()->set("sigma", noise)
                                                                                  ->set("mean", 0.0)
                                                                                  ->set("seed", 20261123));
    image = image.cast(VIPS_FORMAT_UCHAR);
    void* bytes = nullptr;
    size_t size = 0;
    image.write_to_buffer(("." + suffix).c_str(), &bytes, &size);
    auto result = std::make_shared<platform::Image>(
        platform::Image{image.width(), image.height(), suffix == "jpg" ? "mjpeg" : suffix,
                        std::string(static_cast<char*>(bytes), size)});
    g_free(bytes);
    return result;
}

class ScanTest : public ::testing::Test {
protected:
    void SetUp() override {
        device = platform::headless::installHeadlessDevice();
        useScreen(375, 812);
        privacy = platform::headless::installHeadlessPrivacy();
        privacy.authority->setStatus(platform::PrivacyKind::Camera, platform::StatusAuthorized);
        privacy.authority->setStatus(platform::PrivacyKind::Photos, platform::StatusAuthorized);
        camera = std::make_shared<platform::headless::HeadlessCaptureCamera>();
        platform::CaptureCamera::setCurrent(camera);
        album = std::make_shared<platform::headless::HeadlessScanAlbum>();
        platform::ScanAlbum::setCurrent(album);
        window = std::make_shared<platform::ControllerWindow>();
        platform::ApplicationWindows::setKeyWindow(window);
        platform::ApplicationWindows::setDelegateWindow(window);
        host = platform::headless::HeadlessScreen::create();
        window->setRootViewController(host);
    }
    void TearDown() override { settle(); }

    void useScreen(double width, double height) {
        auto facts = device.device->facts();
        facts.screen = {width, height};
        device.device->setFacts(facts);
    }
    std::shared_ptr<ApiScanViewController> presentedScanner() const {
        return std::dynamic_pointer_cast<ApiScanViewController>(host->presentedViewController());
    }
    std::shared_ptr<platform::ScanImagePicker> presentedPicker(const std::shared_ptr<ApiScanViewController>& screen) const {
        return std::dynamic_pointer_cast<platform::ScanImagePicker>(screen->presentedViewController());
    }

    platform::headless::HeadlessDevice device;
    platform::headless::HeadlessPrivacy privacy;
    std::shared_ptr<platform::headless::HeadlessCaptureCamera> camera;
    std::shared_ptr<platform::headless::HeadlessScanAlbum> album;
    std::shared_ptr<platform::ControllerWindow> window;
    std::shared_ptr<platform::headless::HeadlessScreen> host;
    Outcomes outcomes;
};

}  // namespace quorvane::testing
