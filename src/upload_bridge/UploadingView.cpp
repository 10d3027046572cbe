#include "upload_bridge/UploadingView.h"

#include "device/InterfaceFile.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

constexpr const char* kInterfaceFile = "QuorvaneApiSDKImage.bundle/UploadingView";

platform::Rect screenRect() {
    auto device = platform::Platform::current().device;
    auto bounds = device ? device->mainScreenBounds() : platform::ScreenBounds{};
    return {0, 0, bounds.width, bounds.height};
}

}  // namespace

std::shared_ptr<UploadingView> UploadingView::initWithCancelCallback(std::function<void()> cancelCallback) {
    auto view = std::make_shared<UploadingView>();
    view->setFrame(screenRect());
    view->loadLayout();
    view->uploadBar_ = std::make_shared<platform::Label>();
    view->uploadBar_->setFrame({0, 0, 0, kBarHeight});
    view->uploadBar_->setBackgroundColor(kBarColor);
    if (auto track = view->uploadBarBgView()) track->addSubview(view->uploadBar_);
    view->ClickBlock_ = [cancelCallback = std::move(cancelCallback)] { cancelCallback(); };
    return view;
}

// The layout comes from the bundle's interface file; the overlay owns its views through its
// subviews, the outlets only point at them. A missing file leaves a bare overlay (and a log line):
// updates and removal stay harmless.
void UploadingView::loadLayout() {
    std::weak_ptr<UploadingView> weakSelf = std::static_pointer_cast<UploadingView>(shared_from_this());
    auto outlets = loadInterfaceFile(kInterfaceFile, *this, {{"uploadCancelBtnClick:", [weakSelf](platform::Button& sender) {
                                                                 if (auto self = weakSelf.lock()) self->uploadCancelBtnClick(sender);
                                                             }}});
    if (!outlets) return;
    uploadValue_ = std::dynamic_pointer_cast<platform::Label>((*outlets)["uploadValue"]);
    uploadBarBgView_ = (*outlets)["uploadBarBgView"];
    cancelButton_ = std::dynamic_pointer_cast<platform::Button>((*outlets)["cancelButton"]);
}

void UploadingView::uploadingViewUpdate(int percentage) {
    auto frame = uploadBar_->frame();
    frame.width = static_cast<double>(kTrackWidth * percentage / 100);
    uploadBar_->setFrame(frame);
    if (auto label = uploadValue()) label->setText(std::to_string(percentage) + "%");
}

void UploadingView::uploadingViewRemove() { removeFromSuperview(); }

void UploadingView::uploadCancelBtnClick(platform::Button&) {
    auto keep = shared_from_this();  // removal may drop the window's reference
    if (ClickBlock_) ClickBlock_();
    uploadingViewRemove();
}

}  // namespace quorvane
