// Alerts and progress HUDs.
#include "api/QuorvaneApiManager.h"

namespace quorvane {
namespace {

// A HUD on the controller's view; without a controller, one that shows nowhere.
std::shared_ptr<platform::Hud> addHud(const Controller& controller) {
    if (controller) return controller->showHUD(true);
    auto hud = std::make_shared<platform::Hud>();
    hud->setRemoveFromSuperViewOnHide(true);
    return hud;
}

}  // namespace

void QuorvaneApiManager::presentAlertControllerWithController(
    Controller controller, const std::optional<std::string>& title, const std::optional<std::string>& message,
    const std::optional<std::string>& leftContent, const std::optional<std::string>& rightContent,
    AlertCallback leftCallback, AlertCallback rightCallback) {
    auto alert = std::make_shared<platform::AlertController>(title, message, platform::AlertControllerStyle::Alert);
    if (leftContent)
        alert->addAction({leftContent, platform::AlertActionStyle::Default, [leftCallback] {
                              if (leftCallback) leftCallback();
                          }});
    alert->addAction({rightContent, platform::AlertActionStyle::Default, [rightCallback] {
                          if (rightCallback) rightCallback();
                      }});
    if (controller) controller->present(alert, true, nullptr);
}

std::shared_ptr<platform::Hud> QuorvaneApiManager::showMBProgressHUDIndeterminateWithContent(const std::string& content,
                                                                                           Controller controller) {
    auto hud = addHud(controller);
    hud->setDetailsText(content);
    hud->setMode(platform::Hud::Indeterminate);
    return hud;
}

void QuorvaneApiManager::hideMBProgressHUD(const std::shared_ptr<platform::Hud>& hud) {
    if (!hud) return;
    hud->setRemoveFromSuperViewOnHide(true);
    hud->hide(true);
}

void QuorvaneApiManager::showMBProgressHUDWithContent(const std::string& content, double afterDelay,
                                                      Controller controller) {
    auto hud = addHud(controller);
    hud->setDetailsText(content);
    hud->setMode(platform::Hud::Text);
    hud->hide(true, afterDelay);
}

}  // namespace quorvane
