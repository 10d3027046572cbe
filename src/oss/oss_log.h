#pragma once
// The object-storage client's global log switch. Off by default; when on, lines go to the
// foundation log sink as "[Debug]: <message>" or "[Error]: <message>". Callers never pass secrets.
#include <string_view>

namespace quorvane::oss {

class OSSLog {
public:
    static void enableLog();
    static void disableLog();
    static bool isLogEnable();
    // Writes "[Debug]: <message>" when logging is on.
    static void logDebug(std::string_view message);
    // Writes "[Error]: <message>" when logging is on.
    static void logError(std::string_view message);
};

}  // namespace quorvane::oss
