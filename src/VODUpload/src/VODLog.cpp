#include "VODUpload/src/VODLog.h"

#include <string>

#include "foundation/log.h"
#include "oss/oss_log.h"

namespace quorvane {
namespace {

void write(std::string_view source, std::string_view tag, std::string_view message) {
    if (!vodLogEnabled()) return;
    std::string line;
    line.reserve(source.size() + tag.size() + message.size() + 1);
    line.append(source).append(" ").append(tag).append(message);
    foundation::logLine(line);
}

}  // namespace

bool vodLogEnabled() { return oss::OSSLog::isLogEnable(); }

void vodLogDebug(std::string_view source, std::string_view message) { write(source, "[Debug]: ", message); }
void vodLogError(std::string_view source, std::string_view message) { write(source, "[Error]: ", message); }

}  // namespace quorvane
