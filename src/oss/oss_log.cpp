#include "oss/oss_log.h"

#include <atomic>
#include <string>

#include "foundation/log.h"

namespace quorvane::oss {
namespace {
std::atomic<bool> gLogEnabled{false};

void write(std::string_view tag, std::string_view message) {
    if (!gLogEnabled.load(std::memory_order_relaxed)) return;
    std::string line(tag);
    line += message;
    foundation::logLine(line);
}
}  // namespace

void OSSLog::enableLog() { gLogEnabled = true; }
void OSSLog::disableLog() { gLogEnabled = false; }
bool OSSLog::isLogEnable() { return gLogEnabled; }
void OSSLog::logDebug(std::string_view message) { write("[Debug]: ", message); }
void OSSLog::logError(std::string_view message) { write("[Error]: ", message); }

}  // namespace quorvane::oss
