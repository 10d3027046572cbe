#pragma once
// The look of the scanning screen (LBXScanViewStyle), its presets (StyleDIY), and images looked up by
// bundle name under the resource directory.
#include <optional>
#include <string>

#include "platform/image.h"
#include "platform/view.h"

namespace quorvane {

// Where the corner marks sit relative to the frame's outline.
enum LBXScanViewPhotoframeAngleStyle { LBXScanViewPhotoframeAngleStyle_Inner = 0, LBXScanViewPhotoframeAngleStyle_Outer = 1,
                                       LBXScanViewPhotoframeAngleStyle_On = 2 };
// The animation inside the frame.
enum LBXScanViewAnimationStyle { LBXScanViewAnimationStyle_LineMove = 0, LBXScanViewAnimationStyle_NetGrid = 1,
                                 LBXScanViewAnimationStyle_LineStill = 2, LBXScanViewAnimationStyle_None = 3 };

struct LBXScanViewStyle {
    bool isNeedShowRetangle = true;                 // outline of the scanning frame
    double whRatio = 1.0;                           // frame width ÷ height
    double centerUpOffset = 44.0;                   // frame centre above the view centre, points
    double xScanRetangleOffset = 60.0;              // frame inset from the left and right edges, points
    platform::Color colorRetangleLine{1, 1, 1, 1};
    int photoframeAngleStyle = LBXScanViewPhotoframeAngleStyle_Outer;
    platform::Color colorAngle{0, 167.0 / 255, 231.0 / 255, 1};
    double photoframeAngleW = 24.0;
    double photoframeAngleH = 24.0;
    double photoframeLineW = 7.0;
    int anmiationStyle = LBXScanViewAnimationStyle_LineMove;
    platform::ImagePtr animationImage;
    platform::Color notRecoginitonArea{0, 0, 0, 0.5};  // shade outside the frame
};

class StyleDIY {
public:
    // The façade's style; compact offsets on screens at most 480 points high.
    static LBXScanViewStyle ZhiFuBaoStyle();
    static LBXScanViewStyle qqStyle();
    static LBXScanViewStyle InnerStyle();
    static LBXScanViewStyle weixinStyle();
    static LBXScanViewStyle OnStyle();
    static LBXScanViewStyle changeColor();
    static LBXScanViewStyle changeSize();
    static LBXScanViewStyle notSquare();
    static LBXScanViewStyle recoCropRect();
    // A one-pixel PNG of `color`; null if it cannot be made.
    static platform::ImagePtr createImageWithColor(platform::Color color);
};

// Bundle images: "CodeScan.bundle/qrcode_scan_full_net" is read from
// <resource directory>/CodeScan.bundle/qrcode_scan_full_net.png. Null when there is no such image.
platform::ImagePtr scanBundleImageNamed(const std::string& name);
// The directory bundles are looked up in; by default the resources/ folder the build was made with. A
// host that installs them elsewhere says where (the library reads no environment variable).
std::string scanResourceDirectory();
void setScanResourceDirectory(std::optional<std::string> directory);

}  // namespace quorvane
