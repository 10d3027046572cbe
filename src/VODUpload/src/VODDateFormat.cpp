#include "VODUpload/src/VODDateFormat.h"

#include <cstdio>
#include <ctime>

namespace quorvane {
namespace {

std::tm brokenDown(foundation::SystemTime t, bool utc) {
    std::time_t secs = std::chrono::system_clock::to_time_t(t);
    std::tm tm{};
    if (utc)
        gmtime_r(&secs, &tm);
    else
        localtime_r(&secs, &tm);
    return tm;
}

}  // namespace

std::string vodDateString(foundation::SystemTime t, bool utc) {
    std::tm tm = brokenDown(t, utc);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%03dZ", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                  tm.tm_hour, tm.tm_min, tm.tm_sec);
    return buf;
}

std::string vodDateDescription(foundation::SystemTime t) {
    return foundation::formatTime(t, "%Y-%m-%d %H:%M:%S +0000", true);
}

}  // namespace quorvane
