#pragma once
// The façade's QR scanning screen: the camera scanner with a cancel button and an album button
// (recognising a code in a chosen photo). Every way out reports exactly one outcome, through
// onSuccess (the text read) or onFail (a message), then the screen dismisses itself. Main thread only.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "device/QrScanViewController.h"
#include "platform/scan_album.h"
#include "platform/view.h"

namespace quorvane {

// How the album button asks for the photo library and sends the user to the settings. The
// permission classes sit above the device services, so whoever builds the screen supplies them
// (the façade wires the permission checks and the settings alert). Empty members do nothing.
struct ApiScanPermissions {
    // Asks for photo-library access; answers (granted, firstTime).
    std::function<void(std::function<void(bool granted, bool firstTime)>)> authorizePhotos;
    // The go-to-settings alert: title, message, cancel title, settings title.
    std::function<void(const std::string&, const std::string&, const std::string&, const std::string&)> showSettingsAlert;
};

// A system-type button with its tint (the screen's own buttons).
class ApiScanButton : public platform::Button {
public:
    static constexpr int ButtonTypeSystem = 1;
    int buttonType() const { return ButtonTypeSystem; }
    platform::Color tintColor() const { return tintColor_; }
    void setTintColor(platform::Color color) { tintColor_ = color; }
private:
    platform::Color tintColor_{0, 122.0 / 255, 1, 1};
};

class ApiScanViewController : public LBXScanViewController, public platform::ScanImagePickerDelegate {
public:
    using OnSuccess = std::function<void(const std::string& scanned)>;
    using OnFail = std::function<void(const std::string& message)>;

    static std::shared_ptr<ApiScanViewController> create();

    const OnSuccess& onSuccess() const { return onSuccess_; }
    void setOnSuccess(OnSuccess callback) { onSuccess_ = std::move(callback); }
    const OnFail& onFail() const { return onFail_; }
    void setOnFail(OnFail callback) { onFail_ = std::move(callback); }
    void setPermissions(ApiScanPermissions permissions) { permissions_ = std::move(permissions); }

    // The camera start-up message.
    void viewDidLoad() override;
    // Adds the cancel and album buttons over the scanner.
    void viewDidAppear(bool animated) override;
    bool shouldAutorotate() const override { return false; }
    // Presents the photo-library picker, when the library is available as a source.
    void choseImage();
    void imagePickerController(platform::ScanImagePicker& picker, const platform::PickedMediaInfo& info) override;
    void imagePickerControllerDidCancel(platform::ScanImagePicker& picker) override;
    // The first result's text, or "识别失败"; then the screen goes.
    void scanResultWithArray(const std::optional<std::vector<LBXScanResult>>& array) override;

    std::shared_ptr<ApiScanButton> cancelButton() const { return cancelButton_; }
    std::shared_ptr<ApiScanButton> albumButton() const { return albumButton_; }
    // A screen whose width ÷ height, ×100 and truncated, is 216 or 46 has a notch.
    static bool isNotchedScreen(double width, double height);

private:
    ApiScanViewController() = default;
    std::shared_ptr<ApiScanViewController> self();
    std::shared_ptr<ApiScanButton> addButton(const std::string& title, platform::Rect frame,
                                             std::function<void(ApiScanViewController&)> action);
    void albumTapped();
    void succeed(const std::string& text);
    void fail(const std::string& message);

    OnSuccess onSuccess_;
    OnFail onFail_;
    ApiScanPermissions permissions_;
    std::shared_ptr<ApiScanButton> cancelButton_;
    std::shared_ptr<ApiScanButton> albumButton_;
    bool answered_ = false;
};

}  // namespace quorvane
