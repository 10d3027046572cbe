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

namespace {

// A cursor over the text; every read checks its bounds, so no input can make the parse misbehave.
struct Cursor {
    const std::string& text;
    std::size_t at = 0;
    bool literal(const char* s) {
        auto n = std::strlen(s);
        if (text.compare(at, n, s) != 0) return false;
        at += n;
        return true;
    }
    // Between `minDigits` and `maxDigits` decimal digits, no sign.
    bool number(int minDigits, int maxDigits, int& out) {
        int n = 0;
        out = 0;
        while (n < maxDigits && at < text.size() && text[at] >= '0' && text[at] <= '9') {
            out = out * 10 + (text[at++] - '0');
            ++n;
        }
        return n >= minDigits;
    }
    bool done() const { return at == text.size(); }
};

bool leapYear(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int daysInMonth(int y, int m) {  // m in 1..12
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leapYear(y) ? 29 : days[m - 1];
}

// Days from 1970-01-01 to the civil date (proleptic Gregorian).
long long daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const long long yoe = y - era * 400;
    const long long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// The instant of a validated UTC date and time; nullopt when the clock cannot represent it.
std::optional<SystemTime> instant(int y, int mo, int d, int h, int mi, int s, long long millis) {
    if (mo < 1 || mo > 12 || d < 1 || d > daysInMonth(y, mo) || h > 23 || mi > 59 || s > 60) return std::nullopt;
    const long long seconds = daysFromCivil(y, mo, d) * 86400 + h * 3600 + mi * 60 + s;
    using Seconds = std::chrono::seconds;
    constexpr auto kMax = std::chrono::duration_cast<Seconds>(SystemTime::duration::max()).count() - 1;
    constexpr auto kMin = std::chrono::duration_cast<Seconds>(SystemTime::duration::min()).count() + 1;
    if (seconds > kMax || seconds < kMin) return std::nullopt;
    return SystemTime(std::chrono::duration_cast<SystemTime::duration>(Seconds(seconds) +
                                                                       std::chrono::milliseconds(millis)));
}

}  // namespace

std::optional<SystemTime> parseRfc1123(const std::string& text) {
    static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    Cursor c{text};
    bool day = false;
    for (const char* name : days) day = day || c.literal(name);
    int d = 0, mo = 0, y = 0, h = 0, mi = 0, s = 0;
    if (!day || !c.literal(", ") || !c.number(1, 2, d) || !c.literal(" ")) return std::nullopt;
    for (int i = 0; i < 12 && mo == 0; ++i)
        if (c.literal(months[i])) mo = i + 1;
    // Four-digit years only: anything else is not a date a client sends.
    if (mo == 0 || !c.literal(" ") || !c.number(4, 4, y) || !c.literal(" ") || !c.number(2, 2, h) ||
        !c.literal(":") || !c.number(2, 2, mi) || !c.literal(":") || !c.number(2, 2, s) || !c.literal(" GMT") ||
        !c.done())
        return std::nullopt;
    return instant(y, mo, d, h, mi, s, 0);
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
    Cursor c{text};
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
    if (!c.number(4, 4, y) || !c.literal("-") || !c.number(2, 2, mo) || !c.literal("-") || !c.number(2, 2, d) ||
        !c.literal("T") || !c.number(2, 2, h) || !c.literal(":") || !c.number(2, 2, mi) || !c.literal(":") ||
        !c.number(2, 2, s))
        return std::nullopt;
    long long millis = 0;
    if (c.literal(".")) {
        int digits = 0;
        while (c.at < text.size() && text[c.at] >= '0' && text[c.at] <= '9') {
            if (digits < 3) millis = millis * 10 + (text[c.at] - '0'), ++digits;
            ++c.at;
        }
        if (digits == 0) return std::nullopt;
        while (digits++ < 3) millis *= 10;
    }
    if (!c.literal("Z") || !c.done()) return std::nullopt;
    return instant(y, mo, d, h, mi, s, millis);
}

long localGmtOffsetSeconds(SystemTime t) {
    std::tm tm = toTm(t, false);
    return tm.tm_gmtoff;
}

}  // namespace quorvane::foundation
