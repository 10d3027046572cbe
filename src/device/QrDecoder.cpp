#include "device/QrDecoder.h"

#define ZX_USE_UTF8 1  // text() as UTF-8

#include <vips/vips8>
#include <ZXing/ReadBarcode.h>

#include <mutex>

namespace quorvane {
namespace {

ZXing::BarcodeFormats formatsFor(int scanCodeType) {
    switch (scanCodeType) {
        case LBXScanCodeTypeQRCode: return ZXing::BarcodeFormat::QRCode;
        case LBXScanCodeTypeBarCodes: return ZXing::BarcodeFormat::LinearCodes;
        default: return ZXing::BarcodeFormat::Any;
    }
}

}  // namespace

void initImageLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { vips_init("quorvane"); });
}

std::vector<LBXScanResult> recognizeLuma(const LumaView& image, int scanCodeType, bool stillImage) {
    std::vector<LBXScanResult> found;
    if (!image.data || image.width <= 0 || image.height <= 0) return found;
    ZXing::DecodeHints hints;
    hints.setFormats(formatsFor(scanCodeType));
    hints.setTryHarder(stillImage);
    hints.setTryRotate(stillImage);
    ZXing::ImageView view(image.data, image.width, image.height, ZXing::ImageFormat::Lum, image.stride);
    for (const auto& result : ZXing::ReadBarcodes(view, hints)) {
        if (!result.isValid()) continue;
        LBXScanResult entry;
        if (auto text = result.text(); !text.empty()) entry.strScanned = std::move(text);
        entry.strBarCodeType = ZXing::ToString(result.format());
        found.push_back(std::move(entry));
    }
    return found;
}

std::optional<GrayImage> decodeGray(const std::string& encoded) {
    if (encoded.empty()) return std::nullopt;
    initImageLibrary();
    try {
        auto image = vips::VImage::new_from_buffer(encoded.data(), encoded.size(), "").autorot();
        if (image.has_alpha()) image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255.0}));
        image = image.colourspace(VIPS_INTERPRETATION_B_W).extract_band(0).cast(VIPS_FORMAT_UCHAR);
        size_t size = 0;
        auto* bytes = static_cast<std::uint8_t*>(image.write_to_memory(&size));
        GrayImage gray{image.width(), image.height(), std::vector<std::uint8_t>(bytes, bytes + size)};
        g_free(bytes);
        return gray;
    } catch (const vips::VError&) {
        return std::nullopt;
    }
}

void LBXScanNative::recognizeImage(const platform::ImagePtr& image, const Success& success) {
    std::vector<LBXScanResult> found;
    if (image) {
        if (auto gray = decodeGray(image->data)) found = recognizeLuma(gray->view(), LBXScanCodeTypeQRCode, true);
    }
    if (success) success(found);
}

}  // namespace quorvane
