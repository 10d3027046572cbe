#include "permission/LBXAlertCategories.h"

namespace quorvane {

const char ActionTag = 0;

namespace {

char kAlertViewBlockKey;
char kActionSheetBlockKey;

// Answers the taps of views shown with a block: the block is read from the view itself.
class BlockDelegate : public platform::AlertViewDelegate, public platform::ActionSheetDelegate {
public:
    void alertViewClickedButtonAtIndex(platform::AlertView& view, long buttonIndex) override {
        if (auto block = UIAlertView_LBXAlertAction::block(view)) block(buttonIndex);
        platform::removeAssociatedObjects(view);
    }
    void actionSheetClickedButtonAtIndex(platform::ActionSheet& sheet, long buttonIndex) override {
        if (auto block = UIActionSheet_LBXAlertAction::block(sheet))
            block(buttonIndex, sheet.buttonTitleAtIndex(buttonIndex).value_or(""));
    }
    void actionSheetCancel(platform::ActionSheet& sheet) override { platform::removeAssociatedObjects(sheet); }
};

std::shared_ptr<BlockDelegate> blockDelegate() {
    static auto delegate = std::make_shared<BlockDelegate>();
    return delegate;
}

template <class Block>
Block storedBlock(const platform::AssociatedObjects& owner, const void* key) {
    auto stored = std::static_pointer_cast<Block>(platform::associatedObject(owner, key));
    return stored ? *stored : Block();
}

template <class Block>
void storeBlock(const platform::AssociatedObjects& owner, const void* key, Block block) {
    platform::setAssociatedObject(owner, key, block ? std::make_shared<Block>(std::move(block)) : nullptr);
}

}  // namespace

UIAlertView_LBXAlertAction::Block UIAlertView_LBXAlertAction::block(const platform::AlertView& view) {
    return storedBlock<Block>(view, &kAlertViewBlockKey);
}

void UIAlertView_LBXAlertAction::setBlock(platform::AlertView& view, Block block) {
    platform::removeAssociatedObjects(view);
    storeBlock(view, &kAlertViewBlockKey, std::move(block));
}

void UIAlertView_LBXAlertAction::showWithBlock(platform::AlertView& view, Block block) {
    setBlock(view, std::move(block));
    view.setDelegate(blockDelegate());
    view.show();
}

UIActionSheet_LBXAlertAction::Block UIActionSheet_LBXAlertAction::block(const platform::ActionSheet& sheet) {
    return storedBlock<Block>(sheet, &kActionSheetBlockKey);
}

void UIActionSheet_LBXAlertAction::setBlock(platform::ActionSheet& sheet, Block block) {
    storeBlock(sheet, &kActionSheetBlockKey, std::move(block));
}

void UIActionSheet_LBXAlertAction::showInView(platform::ActionSheet& sheet, std::shared_ptr<platform::Presenter> view,
                                              Block block) {
    setBlock(sheet, std::move(block));
    sheet.setDelegate(blockDelegate());
    sheet.showInView(std::move(view));
}

std::shared_ptr<platform::Presenter> UIWindow_LBXHierarchy::topMostController(const platform::ControllerWindow& window) {
    auto top = window.rootViewController();
    while (top) {
        auto presented = std::dynamic_pointer_cast<platform::Presenter>(top->presentedViewController());
        if (!presented) break;
        top = presented;
    }
    return top;
}

std::shared_ptr<platform::Presenter> UIWindow_LBXHierarchy::currentViewController(const platform::ControllerWindow& window) {
    auto current = topMostController(window);
    while (auto navigation = std::dynamic_pointer_cast<platform::NavigationController>(current)) {
        auto top = navigation->topViewController();
        if (!top || top == current) break;
        current = top;
    }
    return current;
}

int UIAlertController_supportedInterfaceOrientations::supportedInterfaceOrientations(const platform::AlertController&) {
    return 2;
}

}  // namespace quorvane

namespace quorvane {

void UIButton_Block::addAction(platform::Button& button, ActionBlock block) {
    addAction(button, std::move(block), platform::UIControlEventTouchUpInside);
}

void UIButton_Block::addAction(platform::Button& button, ActionBlock block, unsigned long controlEvents) {
    // Copied, not retained by reference: the block is the button's own from now on.
    storeBlock(button, &ActionTag, std::move(block));
    button.addTarget(&button, &UIButton_Block::action, controlEvents);
}

void UIButton_Block::action(platform::Button& sender) {
    if (auto block = storedBlock<ActionBlock>(sender, &ActionTag)) block(sender);
}

}  // namespace quorvane
