#include "permission/LBXPermissionSetting.h"

#include "permission/LBXAlertAction.h"
#include "permission/LBXAlertCategories.h"
#include "platform/platform.h"

namespace quorvane {

void LBXPermissionSetting::displayAppPrivacySettings() {
    auto opener = platform::Platform::current().urlOpener;
    if (opener && opener->canOpenURL(platform::kOpenSettingsURLString))
        opener->openURL(platform::kOpenSettingsURLString, Value::object(), nullptr);
}

void LBXPermissionSetting::showAlertToDislayPrivacySettingWithTitle(const std::optional<std::string>& title,
                                                                    const std::optional<std::string>& msg,
                                                                    const std::optional<std::string>& cancel,
                                                                    const std::optional<std::string>& setting) {
    showAlertToDislayPrivacySettingWithTitle(title, msg, cancel, setting, nullptr);
}

void LBXPermissionSetting::showAlertToDislayPrivacySettingWithTitle(const std::optional<std::string>& title,
                                                                    const std::optional<std::string>& msg,
                                                                    const std::optional<std::string>& cancel,
                                                                    const std::optional<std::string>& setting,
                                                                    std::function<void()> completion) {
    auto alert = std::make_shared<platform::AlertController>(title, msg, platform::AlertControllerStyle::Alert);
    alert->addAction({cancel, platform::AlertActionStyle::Cancel, [completion] {
                          if (completion) completion();
                      }});
    alert->addAction({setting, platform::AlertActionStyle::Default, [completion] {
                          if (completion) completion();
                          displayAppPrivacySettings();
                      }});
    if (auto top = getTopViewController()) top->present(alert, true, nullptr);
}

std::shared_ptr<platform::Presenter> LBXPermissionSetting::getTopViewController() {
    return LBXAlertAction::getTopViewController();
}

std::shared_ptr<platform::Presenter> LBXPermissionSetting::currentTopViewController() {
    auto window = platform::ApplicationWindows::delegateWindow();
    auto top = window ? window->rootViewController() : nullptr;
    while (top) {
        auto presented = std::dynamic_pointer_cast<platform::Presenter>(top->presentedViewController());
        if (!presented) break;
        top = presented;
    }
    if (auto tabs = std::dynamic_pointer_cast<platform::TabBarController>(top)) top = tabs->selectedViewController();
    if (auto navigation = std::dynamic_pointer_cast<platform::NavigationController>(top)) top = navigation->topViewController();
    return top;
}

}  // namespace quorvane
