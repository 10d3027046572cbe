#pragma once
// Headless screens that can be presented and present in turn, and the two container controllers,
// so a test can build the hierarchy the top-controller walk goes through.
#include <vector>

#include "platform/headless/headless_presenter.h"
#include "platform/window_hierarchy.h"

namespace quorvane::platform::headless {

class HeadlessScreen : public ViewController, public Presenter {
public:
    static std::shared_ptr<HeadlessScreen> create();
    void present(std::shared_ptr<ViewController> controller, bool animated, std::function<void()> completion) override;
    void dismiss(bool animated, std::function<void()> completion) override;
    std::shared_ptr<ViewController> presentedViewController() const override;
    std::shared_ptr<Hud> showHUD(bool animated) override;
    // What was presented from this screen.
    const std::shared_ptr<HeadlessPresenter>& recorder() const { return recorder_; }
protected:
    HeadlessScreen();
private:
    std::shared_ptr<HeadlessPresenter> recorder_;
};

class HeadlessNavigationController : public HeadlessScreen, public NavigationController {
public:
    static std::shared_ptr<HeadlessNavigationController> create();
    void pushViewController(std::shared_ptr<Presenter> controller);
    std::shared_ptr<Presenter> topViewController() const override;
private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Presenter>> stack_;
};

class HeadlessTabBarController : public HeadlessScreen, public TabBarController {
public:
    static std::shared_ptr<HeadlessTabBarController> create();
    void setViewControllers(std::vector<std::shared_ptr<Presenter>> controllers);
    void setSelectedIndex(std::size_t index);
    std::shared_ptr<Presenter> selectedViewController() const override;
private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Presenter>> controllers_;
    std::size_t selected_ = 0;
};

}  // namespace quorvane::platform::headless
