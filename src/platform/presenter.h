#pragma once
// The screen controller the façade presents from: present and dismiss screens, show HUDs and
// alerts. Implementations: a real user interface where one exists, headless::HeadlessPresenter here.
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quorvane::platform {

class Presenter;

// Anything that can be presented modally (alerts, pickers, scan screens).
class ViewController {
public:
    virtual ~ViewController() = default;
    // The controller it was presented from, while presented.
    std::shared_ptr<Presenter> presentingController() const { return presenting_.lock(); }
    void setPresentingController(const std::shared_ptr<Presenter>& presenter) { presenting_ = presenter; }
private:
    std::weak_ptr<Presenter> presenting_;
};

enum class AlertControllerStyle { ActionSheet = 0, Alert = 1 };
enum class AlertActionStyle { Default = 0, Cancel = 1, Destructive = 2 };

struct AlertAction {
    std::optional<std::string> title;
    AlertActionStyle style = AlertActionStyle::Default;
    std::function<void()> handler;  // may be empty
};

// An alert or action sheet: title, message and buttons. Tapping a button dismisses the alert,
// then runs the button's handler.
class AlertController : public ViewController, public std::enable_shared_from_this<AlertController> {
public:
    AlertController(std::optional<std::string> title, std::optional<std::string> message, AlertControllerStyle style);
    const std::optional<std::string>& title() const { return title_; }
    const std::optional<std::string>& message() const { return message_; }
    AlertControllerStyle preferredStyle() const { return style_; }
    void addAction(AlertAction action);
    std::vector<AlertAction> actions() const;
    // The user taps the button at `index` / the first button titled `title`. False when none.
    bool tap(std::size_t index);
    bool tap(const std::string& title);
private:
    std::optional<std::string> title_, message_;
    AlertControllerStyle style_;
    mutable std::mutex mutex_;
    std::vector<AlertAction> actions_;
};

// A progress HUD on a controller's view (MBProgressHUD).
class Hud : public std::enable_shared_from_this<Hud> {
public:
    enum Mode { Indeterminate = 0, Determinate = 1, DeterminateHorizontalBar = 2, AnnularDeterminate = 3,
                CustomView = 4, Text = 5 };
    void setDetailsText(const std::string& text);
    std::string detailsText() const;
    void setMode(int mode);
    int mode() const;
    void setProgress(float progress);
    float progress() const;
    void setRemoveFromSuperViewOnHide(bool remove);
    bool removeFromSuperViewOnHide() const;
    void hide(bool animated);
    // Hides it on the main loop after `delay` seconds.
    void hide(bool animated, double delay);
    bool isHidden() const;
    // Hidden with remove-on-hide set: gone from its view.
    bool isRemoved() const;
private:
    mutable std::mutex mutex_;
    std::string detailsText_;
    int mode_ = Indeterminate;
    float progress_ = 0;
    bool removeOnHide_ = false;
    bool hidden_ = false;
    bool removed_ = false;
};

// UIModalPresentationAutomatic: the platform chooses how a screen is shown.
inline constexpr int kModalPresentationAutomatic = -2;

class Presenter : public std::enable_shared_from_this<Presenter> {
public:
    virtual ~Presenter() = default;
    // How this controller is shown when it is presented itself (UIModalPresentationStyle; 0 full screen).
    int modalPresentationStyle() const { return modalPresentationStyle_; }
    void setModalPresentationStyle(int style) { modalPresentationStyle_ = style; }
    // Presents `controller` modally; `completion` (may be empty) runs once it is on screen.
    virtual void present(std::shared_ptr<ViewController> controller, bool animated, std::function<void()> completion) = 0;
    // Dismisses the screen presented from this controller, if any.
    virtual void dismiss(bool animated, std::function<void()> completion) = 0;
    virtual std::shared_ptr<ViewController> presentedViewController() const = 0;
    // Adds a new HUD to this controller's view and shows it.
    virtual std::shared_ptr<Hud> showHUD(bool animated) = 0;
private:
    std::atomic<int> modalPresentationStyle_{kModalPresentationAutomatic};
};

}  // namespace quorvane::platform
