#pragma once
// The full-screen overlay shown while files go to cloud storage: a thin progress bar growing in
// its track, a percentage label and a cancel button. Main thread only.
#include <functional>
#include <memory>

#include "platform/view.h"

namespace quorvane {

class UploadingView : public platform::View {
public:
    using ClickBlockType = std::function<void()>;

    // The overlay, sized to the main screen; the caller adds it to a window.
    static std::shared_ptr<UploadingView> initWithCancelCallback(std::function<void()> cancelCallback);

    // Bar width (199 × p) ÷ 100 points, label "p%". Not clamped.
    void uploadingViewUpdate(int percentage);
    void uploadingViewRemove();
    // The cancel button's action: the cancel callback, then removal.
    void uploadCancelBtnClick(platform::Button& sender);

    std::shared_ptr<platform::Label> uploadValue() const { return uploadValue_.lock(); }
    std::shared_ptr<platform::View> uploadBarBgView() const { return uploadBarBgView_.lock(); }
    std::shared_ptr<platform::Label> uploadBar() const { return uploadBar_; }
    std::shared_ptr<platform::Button> cancelButton() const { return cancelButton_.lock(); }
    const ClickBlockType& ClickBlock() const { return ClickBlock_; }

    static constexpr double kBarHeight = 4;
    static constexpr int kTrackWidth = 199;
    static constexpr platform::Color kBarColor{0.3176470696926117, 0.4156862795352936, 0.9019607901573181, 1.0};

private:
    void loadLayout();

    std::weak_ptr<platform::Label> uploadValue_;
    std::weak_ptr<platform::View> uploadBarBgView_;
    std::shared_ptr<platform::Label> uploadBar_;
    ClickBlockType ClickBlock_;
    std::weak_ptr<platform::Button> cancelButton_;
};

}  // namespace quorvane
