#pragma once
// The application's windows as controller hierarchies: each window has a root controller; a
// container controller (navigation, tab bar) names the child it shows. A presented screen that can
// present in turn is both a ViewController and a Presenter.
#include <memory>
#include <mutex>

#include "platform/presenter.h"

namespace quorvane::platform {

class NavigationController {
public:
    virtual ~NavigationController() = default;
    virtual std::shared_ptr<Presenter> topViewController() const = 0;
};

class TabBarController {
public:
    virtual ~TabBarController() = default;
    virtual std::shared_ptr<Presenter> selectedViewController() const = 0;
};

class ControllerWindow {
public:
    std::shared_ptr<Presenter> rootViewController() const;
    void setRootViewController(std::shared_ptr<Presenter> root);
private:
    mutable std::mutex mutex_;
    std::shared_ptr<Presenter> root_;
};

// The key window and the application delegate's window: one and the same window until set apart.
struct ApplicationWindows {
    static std::shared_ptr<ControllerWindow> keyWindow();
    static std::shared_ptr<ControllerWindow> delegateWindow();
    static void setKeyWindow(std::shared_ptr<ControllerWindow> window);
    static void setDelegateWindow(std::shared_ptr<ControllerWindow> window);
};

}  // namespace quorvane::platform
