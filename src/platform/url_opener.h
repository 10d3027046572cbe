#pragma once
// Opening URLs through the shared application (other apps, the system settings).
#include <functional>
#include <string>

#include "foundation/value.h"

namespace quorvane::platform {

// The URL that opens this application's page in the system settings.
inline constexpr const char* kOpenSettingsURLString = "app-settings:";

class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    // Whether some installed application handles the URL.
    virtual bool canOpenURL(const std::string& url) const = 0;
    // Asks the system to open the URL; `completion` (may be empty) gets whether it was opened.
    virtual void openURL(const std::string& url, const Value& options, std::function<void(bool)> completion) = 0;
};

}  // namespace quorvane::platform
