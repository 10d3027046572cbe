#include "device/NetReachability.h"

#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "foundation/notification_center.h"
#include "platform/assertion.h"

namespace quorvane {

namespace {

using namespace platform;

constexpr const char* kCallbackFunction =
    "void ReachabilityCallback(SCNetworkReachabilityRef, SCNetworkReachabilityFlags, void *)";

std::atomic<std::uint64_t> gNextObjectId{1};

// Notifying instances by id, so a notification's "object" leads back to its instance.
std::mutex gRegistryMutex;
std::map<std::uint64_t, std::weak_ptr<NetReachability>>& registry() {
    static auto* map = new std::map<std::uint64_t, std::weak_ptr<NetReachability>>();
    return *map;
}

// The class-wide slot of the host-name factory.
std::mutex gSlotMutex;
std::shared_ptr<NetReachability> gHostSlot;

void assertionFailure(const char* function, int line, const char* text) {
    platform::assertionFailed({function, "NetReachability", line, text});
}

bool isRegistered(const void* info) {
    std::lock_guard lock(gRegistryMutex);
    return std::any_of(registry().begin(), registry().end(),
                       [info](const auto& entry) { return entry.second.lock().get() == info; });
}

std::shared_ptr<NetReachability> byAddress(const sockaddr* address, bool localWiFi) {
    auto ref = reachabilitySource()->createWithAddress(address);
    if (!ref) return nullptr;
    auto instance = std::make_shared<NetReachability>(std::move(ref));
    instance->setAlwaysReturnLocalWiFiStatus(localWiFi);
    return instance;
}

NetworkStatus statusForRadio(const std::optional<std::string>& radio) {
    if (!radio) return kNetworkStatusCellularUnknown;
    static const std::array<const char*, 1> k4G = {CTRadioAccessTechnologyLTE};
    static const std::array<const char*, 7> k3G = {
        CTRadioAccessTechnologyHSDPA,        CTRadioAccessTechnologyWCDMA,        CTRadioAccessTechnologyHSUPA,
        CTRadioAccessTechnologyCDMAEVDORev0, CTRadioAccessTechnologyCDMAEVDORevA, CTRadioAccessTechnologyCDMAEVDORevB,
        CTRadioAccessTechnologyeHRPD};
    static const std::array<const char*, 3> k2G = {CTRadioAccessTechnologyEdge, CTRadioAccessTechnologyGPRS,
                                                   CTRadioAccessTechnologyCDMA1x};
    auto in = [&radio](const auto& list) {
        return std::any_of(list.begin(), list.end(), [&radio](const char* name) { return *radio == name; });
    };
    if (in(k4G)) return kNetworkStatus4G;
    if (in(k3G)) return kNetworkStatus3G;
    if (in(k2G)) return kNetworkStatus2G;
    return kNetworkStatusCellularUnknown;
}

}  // namespace

NetReachability::NetReachability(std::shared_ptr<ReachabilityTarget> reachabilityRef)
    : reachabilityRef_(std::move(reachabilityRef)), objectId_(gNextObjectId++) {}

NetReachability::~NetReachability() {
    stopNotifier();
    std::lock_guard lock(gRegistryMutex);
    registry().erase(objectId_);
}

std::shared_ptr<NetReachability> NetReachability::reachabilityWithHostName(const std::string& hostName) {
    auto ref = reachabilitySource()->createWithName(hostName);
    std::lock_guard lock(gSlotMutex);
    if (ref) gHostSlot = std::make_shared<NetReachability>(std::move(ref));
    return gHostSlot;
}

std::shared_ptr<NetReachability> NetReachability::reachabilityWithAddress(const sockaddr* hostAddress) {
    return byAddress(hostAddress, false);
}

std::shared_ptr<NetReachability> NetReachability::reachabilityForInternetConnection() {
    sockaddr_in zero{};
    zero.sin_family = AF_INET;
    return reachabilityWithAddress(reinterpret_cast<const sockaddr*>(&zero));
}

std::shared_ptr<NetReachability> NetReachability::reachabilityForLocalWiFi() {
    sockaddr_in linkLocal{};
    linkLocal.sin_family = AF_INET;
    linkLocal.sin_addr.s_addr = htonl(0xA9FE0000);  // 169.254.0.0
    return byAddress(reinterpret_cast<const sockaddr*>(&linkLocal), true);
}

std::shared_ptr<NetReachability> NetReachability::fromNotification(const Value& userInfo) {
    if (!userInfo.is_object() || !userInfo.contains("object") || !userInfo["object"].is_number_unsigned()) return nullptr;
    std::lock_guard lock(gRegistryMutex);
    auto it = registry().find(userInfo["object"].get<std::uint64_t>());
    return it == registry().end() ? nullptr : it->second.lock();
}

bool NetReachability::startNotifier() {
    if (!reachabilityRef_) return false;
    {
        std::lock_guard lock(gRegistryMutex);
        registry()[objectId_] = weak_from_this();
    }
    std::weak_ptr<NetReachability> weak = weak_from_this();
    // Changes arrive on the platform's thread; the callback runs on the main loop, as a run-loop
    // source scheduled there would.
    return reachabilityRef_->schedule([weak](ReachabilityFlags flags) {
        foundation::dispatch::main().async([weak, flags] {
            if (auto self = weak.lock()) ReachabilityCallback(self->reachabilityRef().get(), flags, self.get());
        });
    });
}

void NetReachability::stopNotifier() {
    if (reachabilityRef_) reachabilityRef_->unschedule();
}

NetworkStatus NetReachability::currentReachabilityStatus() {
    if (!reachabilityRef_) return kNetworkStatusNotReachable;
    auto flags = reachabilityRef_->flags();
    if (!flags) return kNetworkStatusNotReachable;
    return alwaysReturnLocalWiFiStatus_ ? localWiFiStatusForFlags(*flags) : NetReachWorkStatusForFlags(*flags);
}

bool NetReachability::connectionRequired() {
    if (!reachabilityRef_) {
        assertionFailure("-[NetReachability connectionRequired]", 309,
                         "connectionRequired called with NULL reachabilityRef");
        return false;
    }
    auto flags = reachabilityRef_->flags();
    return flags && (*flags & kReachabilityFlagsConnectionRequired);
}

NetworkStatus NetReachability::localWiFiStatusForFlags(ReachabilityFlags flags) {
    PrintReachabilityFlags(flags, "localWiFiStatusForFlags");
    const ReachabilityFlags both = kReachabilityFlagsReachable | kReachabilityFlagsIsDirect;
    return (flags & both) == both ? kNetworkStatusWiFi : kNetworkStatusNotReachable;
}

NetworkStatus NetReachability::NetReachWorkStatusForFlags(ReachabilityFlags flags) {
    if (!(flags & kReachabilityFlagsReachable)) return kNetworkStatusNotReachable;
    NetworkStatus status = kNetworkStatusNotReachable;
    if (!(flags & kReachabilityFlagsConnectionRequired)) status = kNetworkStatusWiFi;
    if ((flags & (kReachabilityFlagsConnectionOnDemand | kReachabilityFlagsConnectionOnTraffic)) &&
        !(flags & kReachabilityFlagsInterventionRequired))
        status = kNetworkStatusWiFi;
    if (flags & kReachabilityFlagsIsWWAN) return statusForRadio(reachabilitySource()->currentRadioAccessTechnology());
    return status;
}

void ReachabilityCallback(ReachabilityTarget* /*target*/, ReachabilityFlags /*flags*/, void* info) {
    if (info == nullptr) return assertionFailure(kCallbackFunction, 89, "info was NULL in ReachabilityCallback");
    if (!isRegistered(info))
        return assertionFailure(kCallbackFunction, 90, "info was wrong class in ReachabilityCallback");
    auto* noteObject = static_cast<NetReachability*>(info);
    const NetworkStatus status = noteObject->currentReachabilityStatus();
    foundation::logLine("status:" + std::to_string(status));
    foundation::NotificationCenter::defaultCenter().post(
        kNetWorkStatusReachabilityChangedNotification, Value{{"object", noteObject->objectId()}, {"status", status}});
}

std::string reachabilityFlagsText(ReachabilityFlags flags, const char* comment) {
    auto bit = [flags](ReachabilityFlags mask, char letter) { return (flags & mask) ? letter : '-'; };
    char text[256];
    std::snprintf(text, sizeof text, "Reachability Flag Status: %c%c %c%c%c%c%c%c%c %s",
                  bit(kReachabilityFlagsIsWWAN, 'W'), bit(kReachabilityFlagsReachable, 'R'),
                  bit(kReachabilityFlagsTransientConnection, 't'), bit(kReachabilityFlagsConnectionRequired, 'c'),
                  bit(kReachabilityFlagsConnectionOnTraffic, 'C'), bit(kReachabilityFlagsInterventionRequired, 'i'),
                  bit(kReachabilityFlagsConnectionOnDemand, 'D'), bit(kReachabilityFlagsIsLocalAddress, 'l'),
                  bit(kReachabilityFlagsIsDirect, 'd'), comment ? comment : "");
    return text;
}

// The line ends where the log sink ends it: the trailing newline of the format is the sink's.
void PrintReachabilityFlags(ReachabilityFlags flags, const char* comment) {
    foundation::logLine(reachabilityFlagsText(flags, comment));
}

}  // namespace quorvane
