#include "VODUpload/src/AVCVReachability.h"

#include <netinet/in.h>

#include <atomic>

#include "foundation/dispatch.h"
#include "foundation/notification_center.h"

namespace quorvane {

using namespace platform;

namespace {
std::atomic<std::uint64_t> gNextObjectId{1};

std::shared_ptr<AVCVReachability> byAddress(const sockaddr* address) {
    auto ref = reachabilitySource()->createWithAddress(address);
    return ref ? std::make_shared<AVCVReachability>(std::move(ref)) : nullptr;
}
}  // namespace

AVCVReachability::AVCVReachability(std::shared_ptr<ReachabilityTarget> reachabilityRef)
    : reachabilityRef_(std::move(reachabilityRef)), objectId_(gNextObjectId++) {}

AVCVReachability::~AVCVReachability() { stopNotifier(); }

std::shared_ptr<AVCVReachability> AVCVReachability::reachabilityWithHostName(const std::string& hostName) {
    auto ref = reachabilitySource()->createWithName(hostName);
    return ref ? std::make_shared<AVCVReachability>(std::move(ref)) : nullptr;
}

std::shared_ptr<AVCVReachability> AVCVReachability::reachabilityWithAddress(const sockaddr* hostAddress) {
    return byAddress(hostAddress);
}

std::shared_ptr<AVCVReachability> AVCVReachability::reachabilityForInternetConnection() {
    sockaddr_in zero{};
    zero.sin_family = AF_INET;
    return byAddress(reinterpret_cast<const sockaddr*>(&zero));
}

std::shared_ptr<AVCVReachability> AVCVReachability::reachabilityForLocalWiFi() {
    sockaddr_in linkLocal{};
    linkLocal.sin_family = AF_INET;
    linkLocal.sin_addr.s_addr = htonl(0xA9FE0000);  // 169.254.0.0
    auto instance = byAddress(reinterpret_cast<const sockaddr*>(&linkLocal));
    if (instance) instance->alwaysReturnLocalWiFiStatus_ = true;
    return instance;
}

bool AVCVReachability::startNotifier() {
    if (!reachabilityRef_) return false;
    std::weak_ptr<AVCVReachability> weak = weak_from_this();
    return reachabilityRef_->schedule([weak](ReachabilityFlags flags) {
        foundation::dispatch::main().async([weak, flags] {
            if (auto self = weak.lock()) AVCVReachabilityCallback(self->reachabilityRef_.get(), flags, self.get());
        });
    });
}

void AVCVReachability::stopNotifier() {
    if (reachabilityRef_) reachabilityRef_->unschedule();
}

AVCVNetworkStatus AVCVReachability::currentReachabilityStatus() {
    if (!reachabilityRef_) return AVCVNotReachable;
    auto flags = reachabilityRef_->flags();
    if (!flags) return AVCVNotReachable;
    return alwaysReturnLocalWiFiStatus_ ? localWiFiStatusForFlags(*flags) : networkStatusForFlags(*flags);
}

bool AVCVReachability::connectionRequired() {
    auto flags = reachabilityRef_ ? reachabilityRef_->flags() : std::nullopt;
    return flags && (*flags & kReachabilityFlagsConnectionRequired);
}

AVCVNetworkStatus AVCVReachability::networkStatusForFlags(ReachabilityFlags flags) {
    if (!(flags & kReachabilityFlagsReachable)) return AVCVNotReachable;
    if (flags & kReachabilityFlagsIsWWAN) return AVCVReachableViaWWAN;
    if ((flags & (kReachabilityFlagsConnectionOnDemand | kReachabilityFlagsConnectionOnTraffic)) &&
        !(flags & kReachabilityFlagsInterventionRequired))
        return AVCVReachableViaWiFi;
    if (!(flags & kReachabilityFlagsConnectionRequired)) return AVCVReachableViaWiFi;
    return AVCVNotReachable;
}

AVCVNetworkStatus AVCVReachability::localWiFiStatusForFlags(ReachabilityFlags flags) {
    const ReachabilityFlags both = kReachabilityFlagsReachable | kReachabilityFlagsIsDirect;
    return (flags & both) == both ? AVCVReachableViaWiFi : AVCVNotReachable;
}

void AVCVReachabilityCallback(ReachabilityTarget*, ReachabilityFlags, void* info) {
    auto* instance = static_cast<AVCVReachability*>(info);
    foundation::NotificationCenter::defaultCenter().post(kAVCVReachabilityChangedNotification,
                                                         Value{{"object", instance->objectId()}});
}

}  // namespace quorvane
