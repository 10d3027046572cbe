#include "upload_bridge/UploadingView.h"

#include "platform/platform.h"

namespace quorvane {
namespace {

constexpr platform::Color kDimming{0, 0, 0, 0.4};
constexpr platform::Color kTrackColor{0.9, 0.9, 0.9, 1.0};

platform::Rect screenRect() {
    auto device = platform::Platform::current().device;
    auto bounds = device ? device->mainScreenBounds() : platform::ScreenBounds{};
    return {0, 0, bounds.width, bounds.height};
}

}  // namespace

std::shared_ptr<UploadingView> UploadingView::initWithCancelCallback(std::function<void()> cancelCallback) {
    auto view = std::make_shared<UploadingView>();
    view->loadLayout();
    view->setFrame(screenRect());
    view->uploadBar_ = std::make_shared<platform::Label>();
    view->uploadBar_->setFrame({0, 0, 0, kBarHeight});
    view->uploadBar_->setBackgroundColor(kBarColor);
    if (auto track = view->uploadBarBgView()) track->addSubview(view->uploadBar_);
    view->ClickBlock_ = [cancelCallback = std::move(cancelCallback)] { cancelCallback(); };
    return view;
}

// The layout: a centred panel with the percentage label, the bar's track and the cancel button,
// which the overlay owns through its subviews (the outlets only point at them).
void UploadingView::loadLayout() {
    auto screen = screenRect();
    setBackgroundColor(kDimming);
    auto panel = std::make_shared<platform::View>();
    panel->setFrame({(screen.width - 240) / 2, (screen.height - 120) / 2, 240, 120});
    panel->setBackgroundColor({1, 1, 1, 1});
    addSubview(panel);

    auto label = std::make_shared<platform::Label>();
    label->setFrame({20, 16, 199, 24});
    label->setText("0%");
    panel->addSubview(label);
    uploadValue_ = label;

    auto track = std::make_shared<platform::View>();
    track->setFrame({20, 52, kTrackWidth, kBarHeight});
    track->setBackgroundColor(kTrackColor);
    panel->addSubview(track);
    uploadBarBgView_ = track;

    auto button = std::make_shared<platform::Button>();
    button->setFrame({20, 72, 199, 36});
    button->setTitle("取消上传");
    std::weak_ptr<UploadingView> weakSelf = std::static_pointer_cast<UploadingView>(shared_from_this());
    button->setAction([weakSelf](platform::Button& sender) {
        if (auto self = weakSelf.lock()) self->uploadCancelBtnClick(sender);
    });
    panel->addSubview(button);
    cancelButton_ = button;
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
