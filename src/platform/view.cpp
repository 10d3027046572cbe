#include "platform/view.h"

#include <algorithm>

namespace quorvane::platform {

Rect View::frame() const {
    std::lock_guard lock(mutex_);
    return frame_;
}

void View::setFrame(Rect frame) {
    std::lock_guard lock(mutex_);
    frame_ = frame;
}

Color View::backgroundColor() const {
    std::lock_guard lock(mutex_);
    return backgroundColor_;
}

void View::setBackgroundColor(Color color) {
    std::lock_guard lock(mutex_);
    backgroundColor_ = color;
}

void View::addSubview(const std::shared_ptr<View>& view) {
    if (!view || view.get() == this) return;
    view->removeFromSuperview();
    {
        std::lock_guard lock(mutex_);
        subviews_.push_back(view);
    }
    std::lock_guard lock(view->mutex_);
    view->superview_ = weak_from_this();
}

void View::removeFromSuperview() {
    std::shared_ptr<View> parent;
    {
        std::lock_guard lock(mutex_);
        parent = superview_.lock();
        superview_.reset();
    }
    if (parent) parent->detach(this);  // may drop the last reference to this view: nothing after it
}

void View::detach(const View* child) {
    std::shared_ptr<View> removed;  // released after the lock, so a destructor never runs under it
    std::lock_guard lock(mutex_);
    auto it = std::find_if(subviews_.begin(), subviews_.end(), [&](const auto& v) { return v.get() == child; });
    if (it == subviews_.end()) return;
    removed = std::move(*it);
    subviews_.erase(it);
}

std::shared_ptr<View> View::superview() const {
    std::lock_guard lock(mutex_);
    return superview_.lock();
}

std::vector<std::shared_ptr<View>> View::subviews() const {
    std::lock_guard lock(mutex_);
    return subviews_;
}

std::string Label::text() const {
    std::lock_guard lock(mutex_);
    return text_;
}

void Label::setText(std::string text) {
    std::lock_guard lock(mutex_);
    text_ = std::move(text);
}

std::string Button::title() const {
    std::lock_guard lock(mutex_);
    return title_;
}

void Button::setTitle(std::string title) {
    std::lock_guard lock(mutex_);
    title_ = std::move(title);
}

void Button::addTarget(const void* target, Action action, unsigned long controlEvents) {
    std::lock_guard lock(mutex_);
    for (auto& entry : targets_) {
        if (entry.target == target) {
            entry.action = std::move(action);
            entry.controlEvents |= controlEvents;
            return;
        }
    }
    targets_.push_back({target, std::move(action), controlEvents});
}

void Button::sendActionsForControlEvents(unsigned long controlEvents) {
    std::vector<Action> actions;
    {
        std::lock_guard lock(mutex_);
        for (const auto& entry : targets_)
            if ((entry.controlEvents & controlEvents) != 0 && entry.action) actions.push_back(entry.action);
    }
    auto keep = shared_from_this();  // an action may remove the button's overlay
    for (auto& action : actions) action(*this);
}

void Button::setAction(Action action) {
    std::lock_guard lock(mutex_);
    targets_.clear();
    targets_.push_back({nullptr, std::move(action), UIControlEventTouchUpInside});
}

void Button::tap() {
    sendActionsForControlEvents(UIControlEventTouchDown);
    sendActionsForControlEvents(UIControlEventTouchUpInside);
}

namespace {
std::mutex keyWindowMutex;
std::shared_ptr<Window>& keyWindowSlot() {
    static std::shared_ptr<Window> window;
    return window;
}
}  // namespace

std::shared_ptr<Window> Window::keyWindow() {
    std::lock_guard lock(keyWindowMutex);
    auto& slot = keyWindowSlot();
    if (!slot) slot = std::make_shared<Window>();
    return slot;
}

void Window::setKeyWindow(std::shared_ptr<Window> window) {
    std::lock_guard lock(keyWindowMutex);
    keyWindowSlot() = std::move(window);
}

}  // namespace quorvane::platform
