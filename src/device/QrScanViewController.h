#pragma once
// The scanning screen's base (LBXScanViewController): a full-screen view over the camera that reads
// codes from live frames and hands them to scanResultWithArray(). With the interest rectangle open,
// only the part of each frame under the scanning frame is read. A subclass adds its own controls
// and decides what a result means. Main thread only.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/QrDecoder.h"
#include "device/QrScanStyle.h"
#include "foundation/notification_center.h"
#include "platform/capture_camera.h"
#include "platform/presenter.h"
#include "platform/view.h"

namespace quorvane {

// The recognition engine behind the camera; every type is served by ZXing here.
enum LBXScanLibraryType { LBXScanLibraryTypeNative = 0, LBXScanLibraryTypeZXing = 1, LBXScanLibraryTypeZBar = 2 };

class LBXScanViewController : public platform::ViewController, public platform::Presenter {
public:
    ~LBXScanViewController() override;

    const std::string& cameraInvokeMsg() const { return cameraInvokeMsg_; }
    void setCameraInvokeMsg(std::string message) { cameraInvokeMsg_ = std::move(message); }
    const LBXScanViewStyle& style() const { return style_; }
    void setStyle(LBXScanViewStyle style) { style_ = std::move(style); }
    bool isOpenInterestRect() const { return isOpenInterestRect_; }
    void setIsOpenInterestRect(bool open) { isOpenInterestRect_ = open; }
    int libraryType() const { return libraryType_; }
    void setLibraryType(int type) { libraryType_ = type; }
    int scanCodeType() const { return scanCodeType_; }
    void setScanCodeType(int type) { scanCodeType_ = type; }

    // The screen's view, sized to the main screen; made (and viewDidLoad() run) on first use.
    std::shared_ptr<platform::View> view();
    virtual void viewDidLoad() {}
    // Starts the camera, showing the start-up message until it runs.
    virtual void viewDidAppear(bool animated);
    // Stops the camera.
    virtual void viewWillDisappear(bool animated);
    virtual bool shouldAutorotate() const { return true; }
    // Called with the codes read from a frame (never an empty list from the camera).
    virtual void scanResultWithArray(const std::optional<std::vector<LBXScanResult>>& array);

    // The scanning frame in view points, from the style.
    platform::Rect scanRetangle() const;
    bool isScanning() const;
    void startScan();
    void stopScan();
    // The label showing the start-up message while the camera starts, or null.
    std::shared_ptr<platform::Label> cameraInvokeLabel() const { return invokeLabel_; }

    // Presenting from the scanning screen (its pickers and alerts). dismiss() with nothing presented
    // dismisses the screen itself from the controller that presented it, as UIKit does.
    void present(std::shared_ptr<platform::ViewController> controller, bool animated,
                 std::function<void()> completion) override;
    void dismiss(bool animated, std::function<void()> completion) override;
    std::shared_ptr<platform::ViewController> presentedViewController() const override;
    std::shared_ptr<platform::Hud> showHUD(bool animated) override;

    // Presents `scanner` from `from`; once on screen it appears (viewDidAppear).
    static void presentScanner(const std::shared_ptr<platform::Presenter>& from,
                               const std::shared_ptr<LBXScanViewController>& scanner, bool animated);

protected:
    LBXScanViewController() = default;

private:
    void handleFrame(const platform::VideoFrame& frame);
    void observeCameraErrors(bool observe);
    LumaView interestRegion(const platform::VideoFrame& frame) const;

    std::string cameraInvokeMsg_;
    LBXScanViewStyle style_;
    bool isOpenInterestRect_ = false;
    int libraryType_ = LBXScanLibraryTypeNative;
    int scanCodeType_ = LBXScanCodeTypeQRCode;
    std::shared_ptr<platform::View> view_;
    std::shared_ptr<platform::Label> invokeLabel_;
    std::shared_ptr<platform::CaptureCamera> camera_;
    bool scanning_ = false;
    std::optional<foundation::NotificationCenter::Token> cameraErrorObserver_;
    std::shared_ptr<platform::ViewController> presented_;
    std::vector<std::shared_ptr<platform::Hud>> huds_;
};

}  // namespace quorvane
