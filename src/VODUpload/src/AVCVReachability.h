#pragma once
// Reachability for the telemetry code, with its own status numbering (0 none, 1 Wi-Fi, 2 cellular).
#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/value.h"
#include "platform/reachability.h"

namespace quorvane {

using AVCVNetworkStatus = std::int32_t;
inline constexpr AVCVNetworkStatus AVCVNotReachable = 0;
inline constexpr AVCVNetworkStatus AVCVReachableViaWiFi = 1;
inline constexpr AVCVNetworkStatus AVCVReachableViaWWAN = 2;

// Posted on the main loop when a notifying instance's flags change; the user information carries
// "object" (the instance's `objectId()`).
inline constexpr const char* kAVCVReachabilityChangedNotification = "kAVCVNetworkReachabilityChangedNotification";

class AVCVReachability : public std::enable_shared_from_this<AVCVReachability> {
public:
    // A new instance every time; nullptr when the platform cannot make the handle.
    static std::shared_ptr<AVCVReachability> reachabilityWithHostName(const std::string& hostName);
    static std::shared_ptr<AVCVReachability> reachabilityWithAddress(const sockaddr* hostAddress);
    static std::shared_ptr<AVCVReachability> reachabilityForInternetConnection();
    static std::shared_ptr<AVCVReachability> reachabilityForLocalWiFi();

    explicit AVCVReachability(std::shared_ptr<platform::ReachabilityTarget> reachabilityRef);
    ~AVCVReachability();
    AVCVReachability(const AVCVReachability&) = delete;
    AVCVReachability& operator=(const AVCVReachability&) = delete;

    bool startNotifier();
    void stopNotifier();
    AVCVNetworkStatus currentReachabilityStatus();
    bool connectionRequired();
    static AVCVNetworkStatus networkStatusForFlags(platform::ReachabilityFlags flags);
    static AVCVNetworkStatus localWiFiStatusForFlags(platform::ReachabilityFlags flags);

    bool alwaysReturnLocalWiFiStatus() const { return alwaysReturnLocalWiFiStatus_; }
    std::uint64_t objectId() const { return objectId_; }

private:
    std::shared_ptr<platform::ReachabilityTarget> reachabilityRef_;
    bool alwaysReturnLocalWiFiStatus_ = false;
    std::uint64_t objectId_;
};

// The change callback: posts kAVCVReachabilityChangedNotification naming the instance, nothing else.
void AVCVReachabilityCallback(platform::ReachabilityTarget* target, platform::ReachabilityFlags flags, void* info);

}  // namespace quorvane
