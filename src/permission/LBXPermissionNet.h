#pragma once
// The process-wide network listener (`LBXPermissionNet`) and the cellular-data permission check
// (`LBXPermissionData`) it consults when the network is unreachable. Everything runs on the main loop.
#include <functional>
#include <memory>
#include <string>

#include "device/NetReachability.h"
#include "foundation/notification_center.h"

namespace quorvane {

class LBXPermissionData {
public:
    using Completion = std::function<void(bool granted, bool firstTime)>;
    static std::shared_ptr<LBXPermissionData> sharedManager();

    // Stores `completion` (replacing an earlier one); the first call starts watching the restriction,
    // whose answers arrive on the main loop.
    void authorizeWithCompletion(Completion completion);

    const Completion& completion() const { return completion_; }

private:
    void handleState(platform::CellularDataRestrictedState state);

    std::shared_ptr<platform::ReachabilitySource> cellularData_;
    Completion completion_;
};

class LBXPermissionNet : public std::enable_shared_from_this<LBXPermissionNet> {
public:
    using OnNetStatus = std::function<void(NetworkStatus status)>;
    using OnNetPermission = std::function<void(bool granted)>;

    static std::shared_ptr<LBXPermissionNet> sharedManager();

    // Reports the host's status to `onNetStatus` and whether the network may be used to
    // `onNetPermission`, starting after `startDelay()` seconds on the main loop.
    void startListenNetWithHostName(const std::string& hostName, OnNetStatus onNetStatus,
                                    OnNetPermission onNetPermission);
    void reachabilityChanged(const Value& userInfo);
    void handNetWithNetStatus(NetworkStatus status);
    void listenNetPermisson();
    void handPermission();

    const std::shared_ptr<NetReachability>& hostReachability() const { return hostReachability_; }
    bool netReachable() const { return netReachable_; }
    bool permissionGranted() const { return permissionGranted_; }
    // The wait before the watcher starts: 2 seconds; tests shorten it.
    double startDelay() const { return startDelay_; }
    void setStartDelay(double seconds) { startDelay_ = seconds; }

private:
    void startWatching(const std::string& hostName);

    std::shared_ptr<NetReachability> hostReachability_;
    bool netReachable_ = true;
    bool permissionGranted_ = true;
    OnNetStatus onNetStatus_;
    OnNetPermission onNetPermission_;
    double startDelay_ = 2.0;
};

// The name logged for a status ("WiFi", "4G网络", ...); empty for an unknown number.
std::string netStatusName(NetworkStatus status);

}  // namespace quorvane
