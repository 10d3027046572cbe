#include "device/UIButtonBlock.h"

#include "platform/associated_objects.h"

namespace quorvane {

const char ActionTag = 0;

void UIButton_Block::addAction(platform::Button& button, ActionBlock block) {
    addAction(button, std::move(block), platform::UIControlEventTouchUpInside);
}

void UIButton_Block::addAction(platform::Button& button, ActionBlock block, unsigned long controlEvents) {
    // Copied, not retained by reference: the block is the button's own from now on.
    platform::setAssociatedBlock(button, &ActionTag, std::move(block));
    button.addTarget(&button, &UIButton_Block::action, controlEvents);
}

void UIButton_Block::action(platform::Button& sender) {
    if (auto block = platform::associatedBlock<ActionBlock>(sender, &ActionTag)) block(sender);
}

}  // namespace quorvane
