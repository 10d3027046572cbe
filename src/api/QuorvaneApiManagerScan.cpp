// The façade's QR scan: behind the camera gate, the scanning screen presented from the host's controller.
#include "api/QuorvaneApiManager.h"
#include "api/QuorvaneApiManagerGate.h"
#include "device/ApiScanViewController.h"
#include "permission/LBXPermission.h"
#include "permission/LBXPermissionSetting.h"
#include "platform/media_picker.h"

namespace quorvane {
namespace {

ApiScanPermissions scanPermissions() {
    ApiScanPermissions permissions;
    permissions.authorizePhotos = [](std::function<void(bool, bool)> answer) {
        LBXPermission::authorizeWithType(LBXPermissionTypePhotos, std::move(answer));
    };
    permissions.showSettingsAlert = [](const std::string& title, const std::string& msg, const std::string& cancel,
                                       const std::string& setting) {
        LBXPermissionSetting::showAlertToDislayPrivacySettingWithTitle(title, msg, cancel, setting);
    };
    return permissions;
}

}  // namespace

void QuorvaneApiManager::scanWithController(Controller controller, SuccessCallback successCallback,
                                            FailCallback failCallback) {
    passScanPermissionGate([controller, successCallback, failCallback] {
        auto scanner = ApiScanViewController::create();
        auto style = StyleDIY::ZhiFuBaoStyle();
        style.animationImage = scanBundleImageNamed("QuorvaneApiSDKImage.bundle/qrcode_scan_full_net");
        scanner->setStyle(style);
        scanner->setIsOpenInterestRect(true);
        scanner->setLibraryType(LBXScanLibraryTypeNative);
        scanner->setScanCodeType(LBXScanCodeTypeQRCode);
        scanner->setOnSuccess([successCallback](const std::string& scanned) {
            if (successCallback) successCallback(Value(scanned));
        });
        scanner->setOnFail([failCallback](const std::string& message) {
            if (failCallback) failCallback(Value(message));
        });
        scanner->setPermissions(scanPermissions());
        // The full-screen style goes on the host's own controller, not on the scanner (kept as the
        // host expects it).
        if (controller) controller->setModalPresentationStyle(platform::ModalPresentationFullScreen);
        LBXScanViewController::presentScanner(controller, scanner, true);
    });
}

}  // namespace quorvane
