// The permission gate in front of the capture, recording and scan operations.
#include "api/QuorvaneApiManagerGate.h"

#include "permission/LBXPermission.h"
#include "permission/LBXPermissionSetting.h"

namespace quorvane {
namespace {

void gate(int type, std::function<void()> proceed, std::function<void()> refusedAgain) {
    LBXPermission::authorizeWithType(type, [proceed = std::move(proceed), refusedAgain = std::move(refusedAgain)](
                                               bool granted, bool firstTime) {
        if (granted) proceed();
        else if (!firstTime) refusedAgain();
        // Refused at the prompt just shown: deliberately silent.
    });
}

}  // namespace

void passPermissionGate(int type, const std::string& errorWord, FailCallback failCallback,
                        std::function<void()> proceed) {
    gate(type, std::move(proceed), [errorWord, failCallback = std::move(failCallback)] {
        if (failCallback) failCallback(errorWord);
    });
}

void passScanPermissionGate(std::function<void()> proceed) {
    gate(LBXPermissionTypeCamera, std::move(proceed), [] {
        LBXPermissionSetting::showAlertToDislayPrivacySettingWithTitle("提示", "没有相机权限，是否前往设置", "取消", "设置");
    });
}

}  // namespace quorvane
