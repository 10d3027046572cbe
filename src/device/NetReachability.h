#pragma once
// Network status of a host, an address, the internet connection or the local Wi-Fi link, from the
// platform's reachability flags and radio technology, with change announcements.
#include <sys/socket.h>

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/value.h"
#include "platform/reachability.h"

namespace quorvane {

using NetworkStatus = std::int32_t;

// The status numbers; the gap between 4 and 9 is part of the numbering.
inline constexpr NetworkStatus kNetworkStatusNotReachable = 0;
inline constexpr NetworkStatus kNetworkStatusCellularUnknown = 1;
inline constexpr NetworkStatus kNetworkStatus2G = 2;
inline constexpr NetworkStatus kNetworkStatus3G = 3;
inline constexpr NetworkStatus kNetworkStatus4G = 4;
inline constexpr NetworkStatus kNetworkStatusWiFi = 9;

// Posted on the main thread whenever a notifying instance's flags change. The user information
// carries "object" (the instance's `objectId()`) and "status" (its current status).
inline constexpr const char* kNetWorkStatusReachabilityChangedNotification =
    "kNetWorkStatusReachabilityChangedNotification";

class NetReachability : public std::enable_shared_from_this<NetReachability> {
public:
    // A watcher for a host name. A failed creation returns the instance of the previous successful
    // call (one class-wide slot), or nullptr if there was none.
    static std::shared_ptr<NetReachability> reachabilityWithHostName(const std::string& hostName);
    static std::shared_ptr<NetReachability> reachabilityWithAddress(const sockaddr* hostAddress);
    static std::shared_ptr<NetReachability> reachabilityForInternetConnection();
    static std::shared_ptr<NetReachability> reachabilityForLocalWiFi();
    // The instance a change notification names, while it lives.
    static std::shared_ptr<NetReachability> fromNotification(const Value& userInfo);

    explicit NetReachability(std::shared_ptr<platform::ReachabilityTarget> reachabilityRef);
    ~NetReachability();
    NetReachability(const NetReachability&) = delete;
    NetReachability& operator=(const NetReachability&) = delete;

    // Reports flag changes through ReachabilityCallback on the main loop. True when watching.
    bool startNotifier();
    void stopNotifier();

    NetworkStatus currentReachabilityStatus();
    bool connectionRequired();
    NetworkStatus localWiFiStatusForFlags(platform::ReachabilityFlags flags);
    NetworkStatus NetReachWorkStatusForFlags(platform::ReachabilityFlags flags);

    bool alwaysReturnLocalWiFiStatus() const { return alwaysReturnLocalWiFiStatus_; }
    void setAlwaysReturnLocalWiFiStatus(bool value) { alwaysReturnLocalWiFiStatus_ = value; }
    const std::shared_ptr<platform::ReachabilityTarget>& reachabilityRef() const { return reachabilityRef_; }
    std::uint64_t objectId() const { return objectId_; }

private:
    std::shared_ptr<platform::ReachabilityTarget> reachabilityRef_;
    bool alwaysReturnLocalWiFiStatus_ = false;
    std::uint64_t objectId_;
};

// Given to the platform as the change callback: logs the status and posts the notification.
void ReachabilityCallback(platform::ReachabilityTarget* target, platform::ReachabilityFlags flags, void* info);
// The debug print of a flag word, e.g. "Reachability Flag Status: -R ------d comment".
void PrintReachabilityFlags(platform::ReachabilityFlags flags, const char* comment);
// The same text, for callers that want it without logging.
std::string reachabilityFlagsText(platform::ReachabilityFlags flags, const char* comment);

}  // namespace quorvane
