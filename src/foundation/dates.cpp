#include "foundation/dates.h"

#include <cstdio>
#include <ctime>
#include <cstring>

namespace quorvane::foundation {
namespace {
std::tm toTm(SystemTime t, bool utc) {
    std::time_t tt = std::chrono::system_clock::to_time_t(t);
    std::tm tm{};
    if (utc) gmtime_r(&tt, &tm);
    else localtime_r(&tt, &tm);
    return tm;
}
}  // namespace

std::string formatTime(SystemTime t, const char* fmt, bool utc) {
    std::tm tm = toTm(t, utc);
    char buf[128];
    std::size_t n = std::strftime(buf, sizeof buf, fmt, &tm);
    return std::string(buf, n);
}

std::string rfc1123Gmt(SystemTime t) {
    // strftime's %a/%b follow the locale; these names must not.
    static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::tm tm = toTm(t, true);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s, %02d %s %04d %02d:%02d:%02d GMT", days[tm.tm_wday], tm.tm_mday,
                  months[tm.tm_mon], tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return buf;
}

std::optional<SystemTime> parseRfc1123(const std::string& text) {
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char wday[4] = {}, mon[4] = {}, zone[4] = {};
    int d = 0, y = 0, h = 0, mi = 0, s = 0, consumed = 0;
    if (std::sscanf(text.c_str(), "%3s, %d %3s %d %d:%d:%d %3s%n", wday, &d, mon, &y, &h, &mi, &s, zone, &consumed) != 8)
        return std::nullopt;
    if (static_cast<std::size_t>(consumed) != text.size() || std::strcmp(zone, "GMT") != 0) return std::nullopt;
    int m = -1;
    for (int i = 0; i < 12; ++i)
        if (std::strcmp(mon, months[i]) == 0) m = i;
    if (m < 0 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60) return std::nullopt;
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mon = m;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = s;
    return std::chrono::system_clock::from_time_t(timegm(&tm));
}

std::string iso8601Utc(SystemTime t) { return formatTime(t, "%Y-%m-%dT%H:%M:%SZ", true); }

std::string iso8601UtcMillis(SystemTime t) {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count() % 1000;
    if (ms < 0) ms += 1000;
    char frac[8];
    std::snprintf(frac, sizeof frac, ".%03lldZ", static_cast<long long>(ms));
    return formatTime(t, "%Y-%m-%dT%H:%M:%S", true) + frac;
}

std::optional<SystemTime> parseIso8601Utc(const std::string& text) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, consumed = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &y, &mo, &d, &h, &mi, &s, &consumed) != 6)
        return std::nullopt;
    std::string rest = text.substr(static_cast<std::size_t>(consumed));
    long long millis = 0;
    if (!rest.empty() && rest[0] == '.') {
        std::size_t i = 1;
        int digits = 0;
        while (i < rest.size() && rest[i] >= '0' && rest[i] <= '9') {
            if (digits < 3) millis = millis * 10 + (rest[i] - '0'), ++digits;
            ++i;
        }
        if (digits == 0) return std::nullopt;
        while (digits++ < 3) millis *= 10;
        rest = rest.substr(i);
    }
    if (rest != "Z" || mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60) return std::nullopt;
    std::tm tm{};
    tm.tm_year = y - 1900;
    tm.tm_mon = mo - 1;
    tm.tm_mday = d;
    tm.tm_hour = h;
    tm.tm_min = mi;
    tm.tm_sec = s;
    return std::chrono::system_clock::from_time_t(timegm(&tm)) + std::chrono::milliseconds(millis);
}

long localGmtOffsetSeconds(SystemTime t) {
    std::tm tm = toTm(t, false);
    return tm.tm_gmtoff;
}

}  // namespace quorvane::foundation
