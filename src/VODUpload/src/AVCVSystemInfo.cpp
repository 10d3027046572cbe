#include "VODUpload/src/AVCVSystemInfo.h"

#include <sys/utsname.h>

#include <cerrno>
#include <fstream>
#include <mutex>
#include <utility>

#include "VODUpload/src/AVCVReachability.h"
#include "platform/platform.h"

namespace quorvane {

namespace {

// A public web host: only the local routing state is consulted for it, it is never contacted.
constexpr const char* kProbeHost = "www.aliyun.com";

struct BundleInfo {
    std::optional<std::string> bundleId;
    std::optional<std::string> displayName;
    std::optional<std::string> bundleName;
};

std::mutex gBundleMutex;
BundleInfo& bundleInfo() {
    static BundleInfo info{program_invocation_short_name, std::nullopt, program_invocation_short_name};
    return info;
}

std::string machineIdAsUuid() {
    std::ifstream in("/etc/machine-id");
    std::string id;
    in >> id;
    if (id.size() != 32) return {};
    for (char& c : id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return id.substr(0, 8) + "-" + id.substr(8, 4) + "-" + id.substr(12, 4) + "-" + id.substr(16, 4) + "-" +
           id.substr(20);
}

}  // namespace

std::string AVCVSystemInfo::deviceUUID() {
    auto device = platform::Platform::current().device;
    if (device) {
        if (auto id = device->identifierForVendor()) return *id;
    }
    return machineIdAsUuid();
}

std::string AVCVSystemInfo::deviceModel() {
    utsname name{};
    return uname(&name) == 0 ? std::string(name.machine) : std::string();
}

std::string AVCVSystemInfo::systemVersion() {
    utsname name{};
    return uname(&name) == 0 ? std::string(name.release) : std::string();
}

std::string AVCVSystemInfo::terminalTypeForModel(const std::string& model) {
    if (model.find("iPhone") != std::string::npos) return "phone";
    if (model.find("iPad") != std::string::npos) return "pad";
    return "phone";
}

std::string AVCVSystemInfo::terminalType() { return terminalTypeForModel(deviceModel()); }

std::string AVCVSystemInfo::bundleId() {
    std::lock_guard lock(gBundleMutex);
    return bundleInfo().bundleId.value_or("");
}

std::string AVCVSystemInfo::appDisplayName() {
    std::lock_guard lock(gBundleMutex);
    const auto& info = bundleInfo();
    if (info.displayName) return *info.displayName;
    return info.bundleName.value_or("");
}

void AVCVSystemInfo::setBundleInfo(std::optional<std::string> bundleId, std::optional<std::string> displayName,
                                   std::optional<std::string> bundleName) {
    std::lock_guard lock(gBundleMutex);
    bundleInfo() = BundleInfo{std::move(bundleId), std::move(displayName), std::move(bundleName)};
}

std::string AVCVSystemInfo::cellularNetworkName(const std::optional<std::string>& radio) {
    using namespace platform;
    if (!radio) return "";
    static const std::pair<const char*, const char*> names[] = {
        {CTRadioAccessTechnologyGPRS, "GPRS"},          {CTRadioAccessTechnologyEdge, "2.75G EDGE"},
        {CTRadioAccessTechnologyWCDMA, "3G"},           {CTRadioAccessTechnologyHSDPA, "3.5G HSDPA"},
        {CTRadioAccessTechnologyHSUPA, "3.5G HSUPA"},   {CTRadioAccessTechnologyCDMA1x, "2G"},
        {CTRadioAccessTechnologyCDMAEVDORev0, "3G"},    {CTRadioAccessTechnologyCDMAEVDORevA, "3G"},
        {CTRadioAccessTechnologyCDMAEVDORevB, "3G"},    {CTRadioAccessTechnologyeHRPD, "HRPD"},
        {CTRadioAccessTechnologyLTE, "4G"},
    };
    for (const auto& [technology, name] : names)
        if (*radio == technology) return name;
    return "";
}

std::string AVCVSystemInfo::deviceNetwrok() {
    auto reachability = AVCVReachability::reachabilityWithHostName(kProbeHost);
    const AVCVNetworkStatus status = reachability ? reachability->currentReachabilityStatus() : AVCVNotReachable;
    if (status == AVCVReachableViaWiFi) return "Wifi";
    if (status == AVCVNotReachable) return "no network";
    if (status == AVCVReachableViaWWAN)
        return cellularNetworkName(platform::reachabilitySource()->currentRadioAccessTechnology());
    return "";
}

}  // namespace quorvane
