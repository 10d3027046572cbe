#include "platform/headless/headless_containers.h"

namespace quorvane::platform::headless {

HeadlessScreen::HeadlessScreen() : recorder_(HeadlessPresenter::create()) {}

std::shared_ptr<HeadlessScreen> HeadlessScreen::create() { return std::shared_ptr<HeadlessScreen>(new HeadlessScreen()); }

void HeadlessScreen::present(std::shared_ptr<ViewController> controller, bool animated, std::function<void()> completion) {
    recorder_->present(std::move(controller), animated, std::move(completion));
}

void HeadlessScreen::dismiss(bool animated, std::function<void()> completion) {
    recorder_->dismiss(animated, std::move(completion));
}

std::shared_ptr<ViewController> HeadlessScreen::presentedViewController() const {
    return recorder_->presentedViewController();
}

std::shared_ptr<Hud> HeadlessScreen::showHUD(bool animated) { return recorder_->showHUD(animated); }

std::shared_ptr<HeadlessNavigationController> HeadlessNavigationController::create() {
    return std::shared_ptr<HeadlessNavigationController>(new HeadlessNavigationController());
}

void HeadlessNavigationController::pushViewController(std::shared_ptr<Presenter> controller) {
    std::lock_guard lock(mutex_);
    stack_.push_back(std::move(controller));
}

std::shared_ptr<Presenter> HeadlessNavigationController::topViewController() const {
    std::lock_guard lock(mutex_);
    return stack_.empty() ? nullptr : stack_.back();
}

std::shared_ptr<HeadlessTabBarController> HeadlessTabBarController::create() {
    return std::shared_ptr<HeadlessTabBarController>(new HeadlessTabBarController());
}

void HeadlessTabBarController::setViewControllers(std::vector<std::shared_ptr<Presenter>> controllers) {
    std::lock_guard lock(mutex_);
    controllers_ = std::move(controllers);
}

void HeadlessTabBarController::setSelectedIndex(std::size_t index) {
    std::lock_guard lock(mutex_);
    selected_ = index;
}

std::shared_ptr<Presenter> HeadlessTabBarController::selectedViewController() const {
    std::lock_guard lock(mutex_);
    return selected_ < controllers_.size() ? controllers_[selected_] : nullptr;
}

}  // namespace quorvane::platform::headless
