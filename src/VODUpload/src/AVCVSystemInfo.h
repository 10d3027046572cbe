#pragma once
// Device and application facts the telemetry envelope carries, and the network type name.
#include <optional>
#include <string>

namespace quorvane {

class AVCVSystemInfo {
public:
    // The platform's per-vendor device identifier; on a device without one, this machine's
    // /etc/machine-id as UUID text; "" when neither exists.
    static std::string deviceUUID();
    // The hardware machine name of uname (e.g. "x86_64", "iPhone10,3").
    static std::string deviceModel();
    // The operating system version (the kernel release on Linux).
    static std::string systemVersion();
    // "pad" for a model name containing "iPad" (and not "iPhone"), else "phone".
    static std::string terminalType();
    static std::string bundleId();
    // The display name, else the bundle name, else "".
    static std::string appDisplayName();
    // "Wifi", "no network", a cellular generation name ("4G", "3.5G HSDPA", ...) or "".
    static std::string deviceNetwrok();

    // The application's facts; by default the bundle id and bundle name are the program's name.
    static void setBundleInfo(std::optional<std::string> bundleId, std::optional<std::string> displayName,
                              std::optional<std::string> bundleName);
    // The name for a cellular radio technology; "" for an unknown one or none.
    static std::string cellularNetworkName(const std::optional<std::string>& radioAccessTechnology);
    // terminalType's rule over a model name.
    static std::string terminalTypeForModel(const std::string& model);
};

}  // namespace quorvane
