#include "permission/LBXAlertAction.h"

#include <cstdlib>

#include "foundation/log.h"
#include "permission/LBXAlertCategories.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

constexpr std::size_t kLegacySheetMaxOtherTitles = 8;

void presentOnTop(const std::shared_ptr<platform::AlertController>& alert) {
    if (auto top = LBXAlertAction::getTopViewController()) top->present(alert, true, nullptr);
}

platform::AlertAction indexedAction(const std::string& title, platform::AlertActionStyle style, long index,
                                    const LBXAlertAction::ChooseBlock& chooseBlock) {
    return platform::AlertAction{title, style, [chooseBlock, index] {
                                     if (chooseBlock) chooseBlock(index);
                                 }};
}

void showLegacyAlert(const std::optional<std::string>& title, const std::optional<std::string>& msg,
                     const std::vector<std::string>& titles, const LBXAlertAction::ChooseBlock& chooseBlock) {
    std::optional<std::string> cancel;
    if (!titles.empty()) cancel = titles.front();
    auto view = std::make_shared<platform::AlertView>(title, msg, std::weak_ptr<platform::AlertViewDelegate>(), cancel);
    for (std::size_t i = 1; i < titles.size(); ++i) {
        foundation::logLine("buttonTitle:" + titles[i]);
        view->addButtonWithTitle(titles[i]);
    }
    // The legacy view already numbers its cancel button 0 and the others from 1.
    UIAlertView_LBXAlertAction::showWithBlock(*view, [chooseBlock](long index) {
        if (chooseBlock) chooseBlock(index);
    });
}

void showLegacySheet(const std::optional<std::string>& title, const std::optional<std::string>& cancel,
                     const std::optional<std::string>& destructive, const std::vector<std::string>& others,
                     const LBXAlertAction::ChooseBlock& chooseBlock) {
    if (others.size() > kLegacySheetMaxOtherTitles) return;
    auto sheet = std::make_shared<platform::ActionSheet>(title, std::weak_ptr<platform::ActionSheetDelegate>(), cancel,
                                                         destructive, others);
    long last = sheet->numberOfButtons() - 1;
    // The legacy sheet puts its cancel button last: that one becomes 0, every other index moves up one.
    UIActionSheet_LBXAlertAction::showInView(*sheet, LBXAlertAction::getTopViewController(),
                                             [chooseBlock, last](long index, const std::string&) {
                                                 if (chooseBlock) chooseBlock(index == last ? 0 : index + 1);
                                             });
}

}  // namespace

bool LBXAlertAction::isIosVersion8AndAfter() {
    auto device = platform::Platform::current().device;
    if (!device) return false;
    return std::strtof(device->systemVersion().c_str(), nullptr) >= 8.0f;
}

void LBXAlertAction::showAlertWithTitle(const std::optional<std::string>& title, const std::optional<std::string>& msg,
                                        const std::vector<std::string>& buttonsStatement, ChooseBlock chooseBlock) {
    if (!isIosVersion8AndAfter()) {
        showLegacyAlert(title, msg, buttonsStatement, chooseBlock);
        return;
    }
    auto alert = std::make_shared<platform::AlertController>(title, msg, platform::AlertControllerStyle::Alert);
    for (std::size_t i = 0; i < buttonsStatement.size(); ++i)
        alert->addAction(indexedAction(buttonsStatement[i],
                                       i == 0 ? platform::AlertActionStyle::Cancel : platform::AlertActionStyle::Default,
                                       static_cast<long>(i), chooseBlock));
    presentOnTop(alert);
}

void LBXAlertAction::showActionSheetWithTitle(const std::optional<std::string>& title,
                                              const std::optional<std::string>& message,
                                              const std::optional<std::string>& cancelButtonTitle,
                                              const std::optional<std::string>& destructiveButtonTitle,
                                              const std::vector<std::string>& otherButtonTitle, ChooseBlock chooseBlock) {
    if (!isIosVersion8AndAfter()) {
        showLegacySheet(title, cancelButtonTitle, destructiveButtonTitle, otherButtonTitle, chooseBlock);
        return;
    }
    std::vector<std::string> titles;
    if (cancelButtonTitle) titles.push_back(*cancelButtonTitle);
    if (destructiveButtonTitle) titles.push_back(*destructiveButtonTitle);
    titles.insert(titles.end(), otherButtonTitle.begin(), otherButtonTitle.end());
    auto sheet = std::make_shared<platform::AlertController>(title, message, platform::AlertControllerStyle::ActionSheet);
    // Styles go by position, not by role: without a cancel title the destructive one (index 0)
    // is styled as cancel and the first other title as destructive.
    for (std::size_t i = 0; i < titles.size(); ++i) {
        auto style = platform::AlertActionStyle::Default;
        if (i == 0) style = platform::AlertActionStyle::Cancel;
        else if (i == 1 && destructiveButtonTitle) style = platform::AlertActionStyle::Destructive;
        sheet->addAction(indexedAction(titles[i], style, static_cast<long>(i), chooseBlock));
    }
    presentOnTop(sheet);
}

std::shared_ptr<platform::Presenter> LBXAlertAction::getTopViewController() {
    auto window = platform::ApplicationWindows::keyWindow();
    return window ? UIWindow_LBXHierarchy::currentViewController(*window) : nullptr;
}

}  // namespace quorvane
