#include "device/QrScanStyle.h"

#include <vips/vips8>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>

#include "device/QrDecoder.h"
#include "platform/platform.h"

#ifndef QUORVANE_RESOURCE_DIR
#define QUORVANE_RESOURCE_DIR "resources"
#endif

namespace quorvane {
namespace {

bool compactScreen() {
    auto device = platform::Platform::current().device;
    return device && device->mainScreenBounds().height <= 480;
}

// The frame with corner marks in the style of the payment apps: square, no outline.
LBXScanViewStyle cornerStyle(int angleStyle, platform::Color angleColor) {
    LBXScanViewStyle style;
    style.centerUpOffset = 44;
    style.photoframeAngleStyle = angleStyle;
    style.photoframeLineW = 6;
    style.photoframeAngleW = 24;
    style.photoframeAngleH = 24;
    style.colorAngle = angleColor;
    return style;
}

std::mutex directoryMutex;
std::optional<std::string>& directorySlot() {
    static std::optional<std::string> directory;
    return directory;
}

}  // namespace

LBXScanViewStyle StyleDIY::ZhiFuBaoStyle() {
    LBXScanViewStyle style;
    bool compact = compactScreen();
    style.centerUpOffset = compact ? 40.0 : 60.0;
    style.xScanRetangleOffset = compact ? 20.0 : 30.0;
    style.photoframeAngleStyle = LBXScanViewPhotoframeAngleStyle_Inner;
    style.photoframeLineW = 2.0;
    style.photoframeAngleW = 16.0;
    style.photoframeAngleH = 16.0;
    style.isNeedShowRetangle = false;
    style.anmiationStyle = LBXScanViewAnimationStyle_NetGrid;
    style.notRecoginitonArea = platform::Color{0, 0, 0, 0.6};
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_full_net");
    return style;
}

LBXScanViewStyle StyleDIY::qqStyle() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Outer, {0, 167.0 / 255, 231.0 / 255, 1});
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_light_green");
    return style;
}

LBXScanViewStyle StyleDIY::InnerStyle() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Inner, {0, 195.0 / 255, 0, 1});
    style.photoframeLineW = 3;
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_light_green");
    return style;
}

LBXScanViewStyle StyleDIY::weixinStyle() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Inner, {0, 195.0 / 255, 0, 1});
    style.photoframeLineW = 2;
    style.photoframeAngleW = 18;
    style.photoframeAngleH = 18;
    style.isNeedShowRetangle = true;
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_Scan_weixin_Line");
    return style;
}

LBXScanViewStyle StyleDIY::OnStyle() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_On, {0, 195.0 / 255, 0, 1});
    style.photoframeLineW = 6;
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_light_green");
    return style;
}

LBXScanViewStyle StyleDIY::changeColor() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Inner, {1, 1, 1, 1});
    style.colorRetangleLine = {1, 1, 1, 1};
    style.anmiationStyle = LBXScanViewAnimationStyle_LineStill;
    style.animationImage = createImageWithColor({1, 0, 0, 1});
    return style;
}

LBXScanViewStyle StyleDIY::changeSize() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Outer, {0, 167.0 / 255, 231.0 / 255, 1});
    style.xScanRetangleOffset = 80;
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_light_green");
    return style;
}

LBXScanViewStyle StyleDIY::notSquare() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Inner, {0, 195.0 / 255, 0, 1});
    style.whRatio = 4.3 / 2.18;  // the proportions of a bank card
    style.xScanRetangleOffset = 30;
    style.centerUpOffset = 20;
    style.anmiationStyle = LBXScanViewAnimationStyle_LineStill;
    style.animationImage = createImageWithColor({1, 0, 0, 1});
    return style;
}

LBXScanViewStyle StyleDIY::recoCropRect() {
    auto style = cornerStyle(LBXScanViewPhotoframeAngleStyle_Outer, {0, 167.0 / 255, 231.0 / 255, 1});
    style.isNeedShowRetangle = true;
    style.notRecoginitonArea = {0, 0, 0, 0.6};
    style.animationImage = scanBundleImageNamed("CodeScan.bundle/qrcode_scan_light_green");
    return style;
}

platform::ImagePtr StyleDIY::createImageWithColor(platform::Color color) {
    initImageLibrary();
    try {
        std::vector<double> rgba{color.red * 255, color.green * 255, color.blue * 255, color.alpha * 255};
        auto pixel = vips::VImage::black(1, 1).new_from_image(rgba).cast(VIPS_FORMAT_UCHAR)
                         .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
        void* bytes = nullptr;
        size_t size = 0;
        pixel.write_to_buffer(".png", &bytes, &size);
        auto image = std::make_shared<platform::Image>(platform::Image{1, 1, "png", std::string(static_cast<char*>(bytes), size)});
        g_free(bytes);
        return image;
    } catch (const vips::VError&) {
        return nullptr;
    }
}

std::string scanResourceDirectory() {
    std::lock_guard lock(directoryMutex);
    if (directorySlot()) return *directorySlot();
    return QUORVANE_RESOURCE_DIR;
}

void setScanResourceDirectory(std::optional<std::string> directory) {
    std::lock_guard lock(directoryMutex);
    directorySlot() = std::move(directory);
}

platform::ImagePtr scanBundleImageNamed(const std::string& name) {
    std::ifstream file(scanResourceDirectory() + "/" + name + ".png", std::ios::binary);
    if (!file) return nullptr;
    std::string data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    initImageLibrary();
    try {
        auto header = vips::VImage::new_from_buffer(data.data(), data.size(), "");
        return std::make_shared<platform::Image>(platform::Image{header.width(), header.height(), "png", std::move(data)});
    } catch (const vips::VError&) {
        return nullptr;
    }
}

}  // namespace quorvane
