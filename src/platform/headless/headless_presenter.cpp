#include "platform/headless/headless_presenter.h"

namespace quorvane::platform::headless {

std::shared_ptr<HeadlessPresenter> HeadlessPresenter::create() {
    return std::shared_ptr<HeadlessPresenter>(new HeadlessPresenter());
}

void HeadlessPresenter::present(std::shared_ptr<ViewController> controller, bool, std::function<void()> completion) {
    if (!controller) return;
    {
        std::lock_guard lock(mutex_);
        if (presented_) {
            ++refused_;
            return;
        }
        presented_ = controller;
        history_.push_back(controller);
    }
    controller->setPresentingController(shared_from_this());
    if (completion) completion();
}

void HeadlessPresenter::dismiss(bool, std::function<void()> completion) {
    std::shared_ptr<ViewController> gone;
    {
        std::lock_guard lock(mutex_);
        gone = std::move(presented_);
        presented_.reset();
        if (gone) ++dismissals_;
    }
    if (gone) gone->setPresentingController(nullptr);
    if (completion) completion();
}

std::shared_ptr<ViewController> HeadlessPresenter::presentedViewController() const {
    std::lock_guard lock(mutex_);
    return presented_;
}

std::shared_ptr<Hud> HeadlessPresenter::showHUD(bool) {
    auto hud = std::make_shared<Hud>();
    hud->setRemoveFromSuperViewOnHide(true);
    std::lock_guard lock(mutex_);
    huds_.push_back(hud);
    return hud;
}

std::vector<std::shared_ptr<ViewController>> HeadlessPresenter::history() const {
    std::lock_guard lock(mutex_);
    return history_;
}

std::vector<std::shared_ptr<Hud>> HeadlessPresenter::huds() const {
    std::lock_guard lock(mutex_);
    return huds_;
}

std::shared_ptr<AlertController> HeadlessPresenter::lastAlert() const {
    std::lock_guard lock(mutex_);
    for (auto it = history_.rbegin(); it != history_.rend(); ++it)
        if (auto alert = std::dynamic_pointer_cast<AlertController>(*it)) return alert;
    return nullptr;
}

int HeadlessPresenter::dismissals() const {
    std::lock_guard lock(mutex_);
    return dismissals_;
}

int HeadlessPresenter::refusedPresentations() const {
    std::lock_guard lock(mutex_);
    return refused_;
}

}  // namespace quorvane::platform::headless
