#include "device/QrScanViewController.h"

#include <algorithm>
#include <cmath>

#include "platform/platform.h"

namespace quorvane {

LBXScanViewController::~LBXScanViewController() {
    observeCameraErrors(false);
    if (scanning_ && camera_) camera_->stopRunning();
}

std::shared_ptr<platform::View> LBXScanViewController::view() {
    if (!view_) {
        view_ = std::make_shared<platform::View>();
        platform::ScreenBounds screen{};
        if (auto device = platform::Platform::current().device) screen = device->mainScreenBounds();
        view_->setFrame({0, 0, screen.width, screen.height});
        view_->setBackgroundColor({0, 0, 0, 1});
        viewDidLoad();
    }
    return view_;
}

void LBXScanViewController::viewDidAppear(bool) {
    auto root = view();
    if (!cameraInvokeMsg_.empty() && !invokeLabel_ && !scanning_) {
        invokeLabel_ = std::make_shared<platform::Label>();
        invokeLabel_->setText(cameraInvokeMsg_);
        auto rect = scanRetangle();
        invokeLabel_->setFrame({rect.x, rect.y + rect.height / 2 - 15, rect.width, 30});
        root->addSubview(invokeLabel_);
    }
    startScan();
}

void LBXScanViewController::viewWillDisappear(bool) {
    stopScan();
}

void LBXScanViewController::scanResultWithArray(const std::optional<std::vector<LBXScanResult>>&) {}

platform::Rect LBXScanViewController::scanRetangle() const {
    platform::Rect bounds = view_ ? view_->frame() : platform::Rect{};
    double width = std::max(0.0, bounds.width - 2 * style_.xScanRetangleOffset);
    double height = style_.whRatio > 0 ? width / style_.whRatio : width;
    return {style_.xScanRetangleOffset, bounds.height / 2 - height / 2 - style_.centerUpOffset, width, height};
}

bool LBXScanViewController::isScanning() const {
    return scanning_;
}

void LBXScanViewController::startScan() {
    if (scanning_) return;
    view();
    camera_ = platform::CaptureCamera::current();
    if (!camera_) return;
    auto weak = weak_from_this();
    auto self = [weak] { return std::static_pointer_cast<LBXScanViewController>(weak.lock()); };
    scanning_ = camera_->startRunning(
        [self](const platform::VideoFrame& frame) {
            if (auto screen = self()) screen->handleFrame(frame);
        },
        [self] {
            auto screen = self();
            if (!screen || !screen->invokeLabel_) return;
            screen->invokeLabel_->removeFromSuperview();
            screen->invokeLabel_.reset();
        });
    observeCameraErrors(scanning_);
}

// A camera that stops by itself ends the scan with no result, as a scan that found nothing.
void LBXScanViewController::observeCameraErrors(bool observe) {
    auto& center = foundation::NotificationCenter::defaultCenter();
    if (!observe) {
        if (cameraErrorObserver_) center.removeObserver(*cameraErrorObserver_);
        cameraErrorObserver_.reset();
        return;
    }
    if (cameraErrorObserver_) return;
    auto weak = weak_from_this();
    cameraErrorObserver_ = center.addObserver(platform::AVCaptureSessionRuntimeErrorNotification,
                                              [weak](const std::string&, const Value&) {
                                                  auto screen = std::static_pointer_cast<LBXScanViewController>(weak.lock());
                                                  if (!screen || !screen->scanning_) return;
                                                  screen->stopScan();
                                                  screen->scanResultWithArray(std::nullopt);
                                              });
}

void LBXScanViewController::stopScan() {
    if (!scanning_) return;
    scanning_ = false;
    observeCameraErrors(false);
    if (camera_) camera_->stopRunning();
}

// The scanning frame's share of the view, applied to the frame: the preview fills the view.
LumaView LBXScanViewController::interestRegion(const platform::VideoFrame& frame) const {
    LumaView whole{frame.luma->data(), frame.width, frame.height, frame.stride};
    platform::Rect bounds = view_ ? view_->frame() : platform::Rect{};
    if (bounds.width <= 0 || bounds.height <= 0) return whole;
    auto rect = scanRetangle();
    auto clampTo = [](double value, int limit) { return std::clamp(int(std::lround(value)), 0, limit); };
    int x0 = clampTo(rect.x / bounds.width * frame.width, frame.width);
    int x1 = clampTo((rect.x + rect.width) / bounds.width * frame.width, frame.width);
    int y0 = clampTo(rect.y / bounds.height * frame.height, frame.height);
    int y1 = clampTo((rect.y + rect.height) / bounds.height * frame.height, frame.height);
    if (x1 <= x0 || y1 <= y0) return whole;
    return {whole.data + std::size_t(y0) * frame.stride + x0, x1 - x0, y1 - y0, frame.stride};
}

void LBXScanViewController::handleFrame(const platform::VideoFrame& frame) {
    if (!scanning_ || !frame.valid()) return;
    auto region = isOpenInterestRect_ ? interestRegion(frame) : LumaView{frame.luma->data(), frame.width, frame.height, frame.stride};
    auto found = recognizeLuma(region, scanCodeType_, false);
    if (found.empty()) return;
    stopScan();
    scanResultWithArray(found);
}

void LBXScanViewController::present(std::shared_ptr<platform::ViewController> controller, bool,
                                    std::function<void()> completion) {
    if (!controller || presented_) return;
    presented_ = controller;
    controller->setPresentingController(shared_from_this());
    if (completion) completion();
}

void LBXScanViewController::dismiss(bool animated, std::function<void()> completion) {
    if (presented_) {
        presented_->setPresentingController(nullptr);
        presented_.reset();
    } else if (auto presenter = presentingController()) {
        // Nothing presented from here: the screen itself goes, as UIKit forwards the request.
        viewWillDisappear(animated);
        presenter->dismiss(animated, std::move(completion));
        return;
    }
    if (completion) completion();
}

std::shared_ptr<platform::ViewController> LBXScanViewController::presentedViewController() const {
    return presented_;
}

std::shared_ptr<platform::Hud> LBXScanViewController::showHUD(bool) {
    auto hud = std::make_shared<platform::Hud>();
    hud->setRemoveFromSuperViewOnHide(true);
    huds_.push_back(hud);
    return hud;
}

void LBXScanViewController::presentScanner(const std::shared_ptr<platform::Presenter>& from,
                                           const std::shared_ptr<LBXScanViewController>& scanner, bool animated) {
    if (!from || !scanner) return;
    std::weak_ptr<LBXScanViewController> weak = scanner;
    from->present(scanner, animated, [weak, animated] {
        if (auto screen = weak.lock()) screen->viewDidAppear(animated);
    });
}

}  // namespace quorvane
