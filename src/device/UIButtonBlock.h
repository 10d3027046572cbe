#pragma once
// UIButton(Block): a button's action kept on the button itself, so it goes with the button. Built
// into the device library, whose screens use it; the alert helpers re-export it.
#include <functional>

#include "platform/view.h"

namespace quorvane {

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

}  // namespace quorvane
