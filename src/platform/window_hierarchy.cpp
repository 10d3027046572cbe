#include "platform/window_hierarchy.h"

namespace quorvane::platform {

std::shared_ptr<Presenter> ControllerWindow::rootViewController() const {
    std::lock_guard lock(mutex_);
    return root_;
}

void ControllerWindow::setRootViewController(std::shared_ptr<Presenter> root) {
    std::lock_guard lock(mutex_);
    root_ = std::move(root);
}

namespace {

struct Windows {
    std::mutex mutex;
    std::shared_ptr<ControllerWindow> key = std::make_shared<ControllerWindow>();
    std::shared_ptr<ControllerWindow> delegate = key;
};

Windows& windows() {
    static Windows all;
    return all;
}

}  // namespace

std::shared_ptr<ControllerWindow> ApplicationWindows::keyWindow() {
    std::lock_guard lock(windows().mutex);
    return windows().key;
}

std::shared_ptr<ControllerWindow> ApplicationWindows::delegateWindow() {
    std::lock_guard lock(windows().mutex);
    return windows().delegate;
}

void ApplicationWindows::setKeyWindow(std::shared_ptr<ControllerWindow> window) {
    std::lock_guard lock(windows().mutex);
    windows().key = std::move(window);
}

void ApplicationWindows::setDelegateWindow(std::shared_ptr<ControllerWindow> window) {
    std::lock_guard lock(windows().mutex);
    windows().delegate = std::move(window);
}

}  // namespace quorvane::platform
