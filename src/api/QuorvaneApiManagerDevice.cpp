// System facts, vibration, the delay helper, clipboard, the messaging app and the settings jump.
#include <cmath>
#include <cstdint>

#include "api/QuorvaneApiManager.h"
#include "foundation/dispatch.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

using platform::kSystemSoundID_Vibrate;

// The completion routine of the vibration sound: plays it again, so it buzzes back to back.
void doVibrate(platform::SystemSoundID) {
    if (auto sound = platform::Platform::current().systemSound) sound->play(kSystemSoundID_Vibrate);
}

}  // namespace

void QuorvaneApiManager::getSystemInfoWithSuccessCallback(SuccessCallback successCallback, FailCallback failCallback) {
    auto device = platform::Platform::current().device;
    if (!device) {
        if (failCallback) failCallback(kErrorWordSystemInfoFailed);
        return;
    }
    auto screen = device->mainScreenBounds();
    Value info = Value::object();
    info["brand"] = "apple";
    info["platform"] = device->systemName();
    info["system"] = device->systemVersion();
    info["model"] = device->model();
    info["deviceId"] = device->identifierForVendor().value_or("");
    info["windowWidth"] = static_cast<float>(screen.width);
    // The 44-point navigation bar is taken off the usable height.
    info["windowHeight"] = static_cast<float>(screen.height - 44);
    info["screenWidth"] = static_cast<float>(screen.width);
    info["screenHeight"] = static_cast<float>(screen.height);
    if (successCallback) successCallback(info);
}

void QuorvaneApiManager::startVibrate() {
    auto sound = platform::Platform::current().systemSound;
    if (!sound) return;
    sound->addCompletion(kSystemSoundID_Vibrate, doVibrate);
    sound->play(kSystemSoundID_Vibrate);
}

void QuorvaneApiManager::stopVibrate() {
    auto sound = platform::Platform::current().systemSound;
    if (!sound) return;
    sound->removeCompletion(kSystemSoundID_Vibrate);
    sound->dispose(kSystemSoundID_Vibrate);
}

void QuorvaneApiManager::vibrateWithDuration(float seconds) {
    startVibrate();
    GCDDelay(seconds, [] { stopVibrate(); });
}

void QuorvaneApiManager::GCDDelay(float seconds, std::function<void()> execute) {
    if (!execute) return;
    auto queue = std::make_shared<foundation::ConcurrentQueue>("my.concurrent.queue");
    // Nanoseconds computed in single precision and truncated, as the dispatch time always was.
    float nanoseconds = seconds * 1000000000ull;
    std::int64_t delay = 0;
    if (nanoseconds > 0) delay = nanoseconds >= 9.2e18f ? INT64_MAX : static_cast<std::int64_t>(nanoseconds);
    foundation::after(static_cast<double>(delay) / 1e9, queue, std::move(execute));
}

void QuorvaneApiManager::copyMessage(const std::optional<std::string>& message,
                                     const std::optional<std::string>& alert, Controller withController) {
    if (auto pasteboard = platform::Platform::current().pasteboard) pasteboard->setString(message);
    if (alert && !alert->empty()) showMBProgressHUDWithContent(*alert, 2.0, withController);
}

void QuorvaneApiManager::sendMessage(const std::optional<std::string>& message, Controller withController) {
    if (auto pasteboard = platform::Platform::current().pasteboard) pasteboard->setString(message);
    openWeChat(withController);
}

bool QuorvaneApiManager::isWeChatInstalled() {
    auto opener = platform::Platform::current().urlOpener;
    return opener && opener->canOpenURL(kWeChatURL);
}

void QuorvaneApiManager::openWeChat(Controller controller) {
    if (isWeChatInstalled()) {
        platform::Platform::current().urlOpener->openURL(kWeChatURL, Value::object(), nullptr);
    } else {
        showMBProgressHUDWithContent("请先安装微信", 2.0, controller);
    }
}

void QuorvaneApiManager::jumpToSetting(Controller controller) {
    presentAlertControllerWithController(
        controller, "定位服务未开启", "请在设置-隐私中开启“定位”服务", "暂不", "前往", [] {},
        [] {
            if (auto opener = platform::Platform::current().urlOpener)
                opener->openURL(platform::kOpenSettingsURLString, Value::object(), nullptr);
        });
}

}  // namespace quorvane
