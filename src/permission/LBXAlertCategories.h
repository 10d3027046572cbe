#pragma once
// What the alert helpers attach to the platform's classes: the tap callbacks of legacy alert views
// and action sheets (buttons' in UIButtonBlock.h) (kept in the associated-object side table, so they go with their view), the
// window's controller walk, and the alert controller's orientation.
#include <functional>
#include <memory>
#include <string>

#include "device/UIButtonBlock.h"
#include "platform/legacy_alerts.h"
#include "platform/view.h"
#include "platform/window_hierarchy.h"

namespace quorvane {

// UIAlertView(LBXAlertAction)
struct UIAlertView_LBXAlertAction {
    using Block = std::function<void(long buttonIndex)>;
    static Block block(const platform::AlertView& view);
    // Drops everything attached to the view, then keeps `block`.
    static void setBlock(platform::AlertView& view, Block block);
    // Keeps `block`, answers the view's taps itself and shows it. After a tap the block is dropped.
    static void showWithBlock(platform::AlertView& view, Block block);
};

// UIActionSheet(LBXAlertAction)
struct UIActionSheet_LBXAlertAction {
    using Block = std::function<void(long buttonIndex, const std::string& buttonTitle)>;
    static Block block(const platform::ActionSheet& sheet);
    static void setBlock(platform::ActionSheet& sheet, Block block);
    // Keeps `block`, answers the sheet's taps itself and shows it in `view`. A cancelled sheet drops it.
    static void showInView(platform::ActionSheet& sheet, std::shared_ptr<platform::Presenter> view, Block block);
};

// UIWindow(LBXHierarchy)
struct UIWindow_LBXHierarchy {
    // The root controller, then each controller it presents, to the last one; null when that last
    // one cannot present in turn (an alert, a picker).
    static std::shared_ptr<platform::Presenter> topMostController(const platform::ControllerWindow& window);
    // topMostController, descending through navigation controllers to their top controller.
    static std::shared_ptr<platform::Presenter> currentViewController(const platform::ControllerWindow& window);
};

// UIAlertController(supportedInterfaceOrientations)
struct UIAlertController_supportedInterfaceOrientations {
    // Portrait only.
    static int supportedInterfaceOrientations(const platform::AlertController& controller);
};

}  // namespace quorvane
