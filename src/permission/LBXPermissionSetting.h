#pragma once
// Sends the user to this application's page of the system settings, optionally after an alert
// presented on the top-most controller.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/presenter.h"

namespace quorvane {

class LBXPermissionSetting {
public:
    // Opens the settings page, when the platform can open it.
    static void displayAppPrivacySettings();
    static void showAlertToDislayPrivacySettingWithTitle(const std::optional<std::string>& title,
                                                         const std::optional<std::string>& msg,
                                                         const std::optional<std::string>& cancel,
                                                         const std::optional<std::string>& setting);
    // Either button calls `completion` (may be empty); the settings button then opens the settings.
    static void showAlertToDislayPrivacySettingWithTitle(const std::optional<std::string>& title,
                                                         const std::optional<std::string>& msg,
                                                         const std::optional<std::string>& cancel,
                                                         const std::optional<std::string>& setting,
                                                         std::function<void()> completion);
    // The key window's current controller.
    static std::shared_ptr<platform::Presenter> getTopViewController();
    // From the application delegate's window root: through presented controllers, then the selected
    // tab, then a navigation controller's top controller.
    static std::shared_ptr<platform::Presenter> currentTopViewController();
};

}  // namespace quorvane
