#pragma once
// Code recognition for the scanning screen, on ZXing-C++: live camera frames (luminance planes) and
// still photos (LBXScanNative). Photos are decoded to gray with libvips.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/image.h"

namespace quorvane {

// One recognised code. `strScanned` is absent when the code carries no text (binary content).
struct LBXScanResult {
    std::optional<std::string> strScanned;
    std::string strBarCodeType;  // ZXing's name of the symbology: "QRCode", "EAN-13", ...
};

// Which symbologies a scan looks for (scanCodeType).
enum LBXScanCodeType { LBXScanCodeTypeQRCode = 0, LBXScanCodeTypeBarCodes = 1, LBXScanCodeTypeAll = 2 };

// A gray image: 8 bits per pixel, `stride` bytes per row.
struct LumaView {
    const std::uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;
};

// The codes in `image`, in the order the reader finds them. Still photos get the thorough search
// (rotations, harder binarisation); live frames the quick one, since the next frame comes soon.
std::vector<LBXScanResult> recognizeLuma(const LumaView& image, int scanCodeType, bool stillImage);

// An encoded picture (JPEG, PNG, WebP, TIFF...) as 8-bit gray, honouring its orientation tag.
// Nullopt when the bytes are not a picture.
struct GrayImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;
    LumaView view() const { return {pixels.data(), width, height, width}; }
};
std::optional<GrayImage> decodeGray(const std::string& encoded);
// Starts libvips once per process (every use of it here goes through this first).
void initImageLibrary();

class LBXScanNative {
public:
    using Success = std::function<void(const std::vector<LBXScanResult>& array)>;
    // Decodes the QR codes in a still image and answers the list (empty when none, or when the image
    // cannot be read), synchronously on the calling thread.
    static void recognizeImage(const platform::ImagePtr& image, const Success& success);
};

}  // namespace quorvane
