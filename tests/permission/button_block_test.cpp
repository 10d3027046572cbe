// A button's block is the button's own: it fires for the events it was added for, a second block
// replaces the first, and it goes with the button.
#include <gtest/gtest.h>

#include "permission/LBXAlertCategories.h"

namespace quorvane {
namespace {

TEST(UIButtonBlock, TouchUpInsideRunsTheLatestBlockOnceWithTheSenderOtherEventsWhenAsked) {
    auto button = std::make_shared<platform::Button>();
    std::vector<std::string> calls;
    UIButton_Block::action(*button);  // nothing kept yet: nothing to run
    UIButton_Block::addAction(*button, [&](platform::Button&) { calls.push_back("first"); });
    UIButton_Block::addAction(*button, [&](platform::Button& sender) {
        calls.push_back(&sender == button.get() ? "second, sender" : "second, stranger");
    });
    button->tap();
    EXPECT_EQ(calls, std::vector<std::string>{"second, sender"});

    button->sendActionsForControlEvents(platform::UIControlEventTouchDown);
    EXPECT_EQ(calls.size(), 1u) << "touch-up-inside only";

    // Other control events choose when another button's block runs.
    button = std::make_shared<platform::Button>();
    int runs = 0;
    UIButton_Block::addAction(*button, [&](platform::Button&) { ++runs; }, platform::UIControlEventTouchDown);
    button->sendActionsForControlEvents(platform::UIControlEventTouchUpInside);
    EXPECT_EQ(runs, 0);
    button->sendActionsForControlEvents(platform::UIControlEventTouchDown);
    EXPECT_EQ(runs, 1);
    // Adding for touch-up-inside too leaves one registration: a tap (down, then up) runs it twice, not three times.
    UIButton_Block::addAction(*button, [&](platform::Button&) { ++runs; });
    button->tap();
    EXPECT_EQ(runs, 3);
}

TEST(UIButtonBlock, TheBlockLivesAsLongAsTheButton) {
    auto before = platform::associatedObjectCount();
    auto witness = std::make_shared<int>(0);
    {
        auto button = std::make_shared<platform::Button>();
        UIButton_Block::addAction(*button, [witness](platform::Button&) { ++*witness; });
        EXPECT_EQ(platform::associatedObjectCount(), before + 1);
        button->tap();
    }
    EXPECT_EQ(*witness, 1);
    EXPECT_EQ(platform::associatedObjectCount(), before);
    EXPECT_EQ(witness.use_count(), 1) << "the block was released with the button";
}

}  // namespace
}  // namespace quorvane
