#include "device/ApiScanViewController.h"

#include "foundation/log.h"
#include "device/UIButtonBlock.h"

namespace quorvane {

std::shared_ptr<ApiScanViewController> ApiScanViewController::create() {
    return std::shared_ptr<ApiScanViewController>(new ApiScanViewController());
}

std::shared_ptr<ApiScanViewController> ApiScanViewController::self() {
    return std::static_pointer_cast<ApiScanViewController>(shared_from_this());
}

bool ApiScanViewController::isNotchedScreen(double width, double height) {
    if (height <= 0) return false;
    int ratio = int(width / height * 100);
    return ratio == 216 || ratio == 46;
}

void ApiScanViewController::viewDidLoad() {
    setCameraInvokeMsg("相机启动中");
}

void ApiScanViewController::viewDidAppear(bool animated) {
    LBXScanViewController::viewDidAppear(animated);
    if (cancelButton_) return;  // back from the album: the buttons are still there
    auto bounds = view()->frame();
    double top = (isNotchedScreen(bounds.width, bounds.height) ? 44 : 20) + 8;
    cancelButton_ = addButton("取消", {8, top, 60, 44}, [](ApiScanViewController& screen) {
        screen.fail("取消了");
        screen.dismiss(true, nullptr);
    });
    albumButton_ = addButton("相册", {bounds.width - 44 - 8, top, 44, 44},
                             [](ApiScanViewController& screen) { screen.albumTapped(); });
}

std::shared_ptr<ApiScanButton> ApiScanViewController::addButton(const std::string& title, platform::Rect frame,
                                                                 std::function<void(ApiScanViewController&)> action) {
    auto button = std::make_shared<ApiScanButton>();
    button->setTitle(title);
    button->setTintColor({1, 1, 1, 1});
    button->setFrame(frame);
    std::weak_ptr<ApiScanViewController> weak = self();
    UIButton_Block::addAction(*button, [weak, action = std::move(action)](platform::Button&) {
        if (auto screen = weak.lock()) action(*screen);
    });
    view()->addSubview(button);
    return button;
}

void ApiScanViewController::albumTapped() {
    if (!permissions_.authorizePhotos) return;
    std::weak_ptr<ApiScanViewController> weak = self();
    permissions_.authorizePhotos([weak](bool granted, bool firstTime) {
        auto screen = weak.lock();
        if (!screen) return;
        if (granted) {
            screen->choseImage();
        } else if (!firstTime && screen->permissions_.showSettingsAlert) {
            screen->permissions_.showSettingsAlert("提示", "没有相册权限，是否前往设置", "取消", "设置");
        }
        // Refused at the prompt just shown: the prompt was the answer.
    });
}

void ApiScanViewController::choseImage() {
    auto album = platform::ScanAlbum::current();
    if (!album || !album->isSourceTypeAvailable()) return;
    auto picker = album->makeImagePicker();
    if (!picker) return;
    picker->setAllowsEditing(true);
    picker->setModalPresentationStyle(platform::ScanImagePicker::FullScreen);
    picker->setDelegate(std::weak_ptr<platform::ScanImagePickerDelegate>(self()));
    stopScan();  // the picker covers the whole screen
    present(picker, true, nullptr);
}

void ApiScanViewController::imagePickerControllerDidCancel(platform::ScanImagePicker& picker) {
    foundation::logLine("cancel");
    if (auto presenter = picker.presentingController()) presenter->dismiss(true, nullptr);
    if (!answered_) startScan();  // the scanner is on screen again
}

void ApiScanViewController::imagePickerController(platform::ScanImagePicker& picker,
                                                  const platform::PickedMediaInfo& info) {
    auto image = info.originalImage;
    if (auto presenter = picker.presentingController()) presenter->dismiss(true, nullptr);
    auto screen = self();
    LBXScanNative::recognizeImage(image, [screen](const std::vector<LBXScanResult>& array) {
        if (!array.empty()) {
            screen->scanResultWithArray(array);
            return;
        }
        screen->fail("照片中未识别二维码");
        screen->dismiss(true, nullptr);
    });
}

void ApiScanViewController::scanResultWithArray(const std::optional<std::vector<LBXScanResult>>& array) {
    if (array && !array->empty() && array->front().strScanned) succeed(*array->front().strScanned);
    else fail("识别失败");
    dismiss(true, nullptr);
}

// Whatever happens after the first outcome (a second tap, a late frame) reports nothing more.
void ApiScanViewController::succeed(const std::string& text) {
    if (answered_) return;
    answered_ = true;
    stopScan();
    if (onSuccess_) onSuccess_(text);
}

void ApiScanViewController::fail(const std::string& message) {
    if (answered_) return;
    answered_ = true;
    stopScan();
    if (onFail_) onFail_(message);
}

}  // namespace quorvane
