#include "permission/LBXAlertCategories.h"

namespace quorvane {

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

}  // namespace

UIAlertView_LBXAlertAction::Block UIAlertView_LBXAlertAction::block(const platform::AlertView& view) {
    return platform::associatedBlock<Block>(view, &kAlertViewBlockKey);
}

void UIAlertView_LBXAlertAction::setBlock(platform::AlertView& view, Block block) {
    platform::removeAssociatedObjects(view);
    platform::setAssociatedBlock(view, &kAlertViewBlockKey, std::move(block));
}

void UIAlertView_LBXAlertAction::showWithBlock(platform::AlertView& view, Block block) {
    setBlock(view, std::move(block));
    view.setDelegate(blockDelegate());
    view.show();
}

UIActionSheet_LBXAlertAction::Block UIActionSheet_LBXAlertAction::block(const platform::ActionSheet& sheet) {
    return platform::associatedBlock<Block>(sheet, &kActionSheetBlockKey);
}

void UIActionSheet_LBXAlertAction::setBlock(platform::ActionSheet& sheet, Block block) {
    platform::setAssociatedBlock(sheet, &kActionSheetBlockKey, std::move(block));
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
        auto presented = top->presentedViewController();
        if (!presented) break;
        // The walk goes to the last one even when it cannot present in turn (an alert): then there
        // is no controller to present from.
        top = std::dynamic_pointer_cast<platform::Presenter>(presented);
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
