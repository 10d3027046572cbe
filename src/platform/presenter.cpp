#include "platform/presenter.h"

#include "foundation/dispatch.h"

namespace quorvane::platform {

AlertController::AlertController(std::optional<std::string> title, std::optional<std::string> message,
                                 AlertControllerStyle style)
    : title_(std::move(title)), message_(std::move(message)), style_(style) {}

void AlertController::addAction(AlertAction action) {
    std::lock_guard lock(mutex_);
    actions_.push_back(std::move(action));
}

std::vector<AlertAction> AlertController::actions() const {
    std::lock_guard lock(mutex_);
    return actions_;
}

bool AlertController::tap(std::size_t index) {
    auto all = actions();
    if (index >= all.size()) return false;
    if (auto presenter = presentingController(); presenter && presenter->presentedViewController().get() == this)
        presenter->dismiss(true, nullptr);
    if (all[index].handler) all[index].handler();
    return true;
}

bool AlertController::tap(const std::string& title) {
    auto all = actions();
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].title == title) return tap(i);
    return false;
}

void Hud::setDetailsText(const std::string& text) { std::lock_guard lock(mutex_); detailsText_ = text; }
std::string Hud::detailsText() const { std::lock_guard lock(mutex_); return detailsText_; }
void Hud::setMode(int mode) { std::lock_guard lock(mutex_); mode_ = mode; }
int Hud::mode() const { std::lock_guard lock(mutex_); return mode_; }
void Hud::setProgress(float progress) { std::lock_guard lock(mutex_); progress_ = progress; }
float Hud::progress() const { std::lock_guard lock(mutex_); return progress_; }
void Hud::setRemoveFromSuperViewOnHide(bool remove) { std::lock_guard lock(mutex_); removeOnHide_ = remove; }
bool Hud::removeFromSuperViewOnHide() const { std::lock_guard lock(mutex_); return removeOnHide_; }
bool Hud::isHidden() const { std::lock_guard lock(mutex_); return hidden_; }
bool Hud::isRemoved() const { std::lock_guard lock(mutex_); return removed_; }

void Hud::hide(bool) {
    std::lock_guard lock(mutex_);
    hidden_ = true;
    removed_ = removeOnHide_;
}

void Hud::hide(bool animated, double delay) {
    std::weak_ptr<Hud> weak = weak_from_this();
    foundation::after(delay, foundation::dispatch::main(), [weak, animated] {
        if (auto hud = weak.lock()) hud->hide(animated);
    });
}

}  // namespace quorvane::platform
