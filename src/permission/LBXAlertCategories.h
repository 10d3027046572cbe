#pragma once
// What the alert helpers attach to the platform's classes: the tap callbacks of legacy alert views
// and action sheets (kept in the associated-object side table, so they go with their view), the
// window's controller walk, and the alert controller's orientation.
#include <functional>
#include <memory>
#include <string>

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

// UIButton(Block)
// The key the button's callback is kept under.
extern const char ActionTag;

struct UIButton_Block {
    using ActionBlock = std::function<void(platform::Button& sender)>;
    // Keeps `block` on the button and has `action` answer touch-up-inside.
    static void addAction(platform::Button& button, ActionBlock block);
    // The same for the events in `controlEvents`.
    static void addAction(platform::Button& button, ActionBlock block, unsigned long controlEvents);
    // The registered target operation: runs the block kept on `sender`, if any.
    static void action(platform::Button& sender);
};

// UIWindow(LBXHierarchy)
struct UIWindow_LBXHierarchy {
    // The root controller, then each controller it presents, to the last one.
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
