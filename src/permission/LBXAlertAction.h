#pragma once
// Alerts and action sheets whose taps reach one callback with the tapped button's index: 0 is
// always the cancel button, the others follow from 1 in the order given. Systems from version 8
// use alert controllers; older ones the legacy alert view and action sheet. Main thread only.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/presenter.h"

namespace quorvane {

class LBXAlertAction {
public:
    using ChooseBlock = std::function<void(long buttonIndex)>;

    // The system version, read as a number, is at least 8.0.
    static bool isIosVersion8AndAfter();
    // The first title is the cancel button.
    static void showAlertWithTitle(const std::optional<std::string>& title, const std::optional<std::string>& msg,
                                   const std::vector<std::string>& buttonsStatement, ChooseBlock chooseBlock);
    // Titles in index order: cancel (if given), destructive (if given), then the others. The legacy
    // sheet takes at most eight other titles and shows nothing beyond that.
    static void showActionSheetWithTitle(const std::optional<std::string>& title,
                                         const std::optional<std::string>& message,
                                         const std::optional<std::string>& cancelButtonTitle,
                                         const std::optional<std::string>& destructiveButtonTitle,
                                         const std::vector<std::string>& otherButtonTitle, ChooseBlock chooseBlock);
    // The key window's current controller.
    static std::shared_ptr<platform::Presenter> getTopViewController();
};

}  // namespace quorvane
