#include "permission/LBXPermissionNet.h"

#include <mutex>

#include "foundation/dispatch.h"
#include "foundation/log.h"

namespace quorvane {

std::string netStatusName(NetworkStatus status) {
    switch (status) {
    case kNetworkStatusNotReachable: return "网络不可用";
    case kNetworkStatusCellularUnknown: return "未知网络";
    case kNetworkStatus2G: return "2G网络";
    case kNetworkStatus3G: return "3G网络";
    case kNetworkStatus4G: return "4G网络";
    case kNetworkStatusWiFi: return "WiFi";
    default: return {};
    }
}

std::shared_ptr<LBXPermissionData> LBXPermissionData::sharedManager() {
    static const auto instance = std::shared_ptr<LBXPermissionData>(new LBXPermissionData());
    return instance;
}

void LBXPermissionData::authorizeWithCompletion(Completion completion) {
    completion_ = std::move(completion);
    if (cellularData_) return;
    cellularData_ = platform::reachabilitySource();
    cellularData_->setCellularDataRestrictionNotifier([](platform::CellularDataRestrictedState state) {
        foundation::dispatch::main().async([state] { LBXPermissionData::sharedManager()->handleState(state); });
    });
}

void LBXPermissionData::handleState(platform::CellularDataRestrictedState state) {
    using State = platform::CellularDataRestrictedState;
    if (state == State::NotRestricted) {
        if (completion_) completion_(true, false);
        foundation::logLine("有网络权限");
    } else if (state == State::Restricted) {
        if (completion_) completion_(false, false);
        foundation::logLine("无网络权限");
    } else {
        foundation::logLine("没有请求网络或正在等待用户确认权限?");
    }
}

std::shared_ptr<LBXPermissionNet> LBXPermissionNet::sharedManager() {
    static const auto instance = std::make_shared<LBXPermissionNet>();
    return instance;
}

void LBXPermissionNet::startListenNetWithHostName(const std::string& hostName, OnNetStatus onNetStatus,
                                                  OnNetPermission onNetPermission) {
    onNetStatus_ = std::move(onNetStatus);
    onNetPermission_ = std::move(onNetPermission);
    std::weak_ptr<LBXPermissionNet> weak = weak_from_this();
    foundation::after(startDelay_, foundation::dispatch::main(), [weak, hostName] {
        if (auto self = weak.lock()) self->startWatching(hostName);
    });
}

// Each start adds one more observer: later changes are handled once per start.
void LBXPermissionNet::startWatching(const std::string& hostName) {
    hostReachability_ = NetReachability::reachabilityWithHostName(hostName);
    const NetworkStatus status = hostReachability_ ? hostReachability_->currentReachabilityStatus() : 0;
    if (auto name = netStatusName(status); !name.empty()) foundation::logLine(name);
    handNetWithNetStatus(status);
    std::weak_ptr<LBXPermissionNet> weak = weak_from_this();
    foundation::NotificationCenter::defaultCenter().addObserver(
        kNetWorkStatusReachabilityChangedNotification, [weak](const std::string&, const Value& userInfo) {
            if (auto self = weak.lock()) self->reachabilityChanged(userInfo);
        });
    if (hostReachability_) hostReachability_->startNotifier();
}

void LBXPermissionNet::reachabilityChanged(const Value& userInfo) {
    auto reachability = NetReachability::fromNotification(userInfo);
    const NetworkStatus status = reachability ? reachability->currentReachabilityStatus() : 0;
    if (!foundation::isMainThread()) foundation::logLine("subThread");
    handNetWithNetStatus(status);
}

void LBXPermissionNet::handNetWithNetStatus(NetworkStatus status) {
    netReachable_ = true;
    // 3G is not logged here, unlike at the start.
    if (status != kNetworkStatus3G) {
        if (auto name = netStatusName(status); !name.empty()) foundation::logLine(name);
    }
    if (status == kNetworkStatusNotReachable) netReachable_ = false;
    if (onNetStatus_) onNetStatus_(status);
    if (netReachable_) {
        if (onNetPermission_) onNetPermission_(true);
    } else {
        listenNetPermisson();
        handPermission();
    }
}

void LBXPermissionNet::listenNetPermisson() {
    static std::once_flag once;
    std::weak_ptr<LBXPermissionNet> weak = weak_from_this();
    std::call_once(once, [weak] {
        LBXPermissionData::sharedManager()->authorizeWithCompletion([weak](bool granted, bool) {
            if (auto self = weak.lock()) {
                self->permissionGranted_ = granted;
                self->handPermission();
            }
        });
    });
}

void LBXPermissionNet::handPermission() {
    if (onNetPermission_) onNetPermission_(netReachable_ ? true : permissionGranted_);
}

}  // namespace quorvane
