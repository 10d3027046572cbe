#pragma once
// A headless screen controller: records what is presented, dismissed and shown, so a test (or the
// command-line host) can read alerts and HUDs and tap alert buttons.
#include <mutex>
#include <vector>

#include "platform/presenter.h"

namespace quorvane::platform::headless {

class HeadlessPresenter : public Presenter {
public:
    static std::shared_ptr<HeadlessPresenter> create();

    // While a screen is presented, another presentation is refused (counted), as on a real device.
    void present(std::shared_ptr<ViewController> controller, bool animated, std::function<void()> completion) override;
    void dismiss(bool animated, std::function<void()> completion) override;
    std::shared_ptr<ViewController> presentedViewController() const override;
    // The HUD starts shown, with remove-on-hide set.
    std::shared_ptr<Hud> showHUD(bool animated) override;

    // Every screen presented, in order, and every HUD shown.
    std::vector<std::shared_ptr<ViewController>> history() const;
    std::vector<std::shared_ptr<Hud>> huds() const;
    // The most recently presented alert or action sheet, or null.
    std::shared_ptr<AlertController> lastAlert() const;
    int dismissals() const;
    int refusedPresentations() const;
private:
    HeadlessPresenter() = default;
    mutable std::mutex mutex_;
    std::shared_ptr<ViewController> presented_;
    std::vector<std::shared_ptr<ViewController>> history_;
    std::vector<std::shared_ptr<Hud>> huds_;
    int dismissals_ = 0;
    int refused_ = 0;
};

}  // namespace quorvane::platform::headless
