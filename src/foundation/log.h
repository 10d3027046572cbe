#pragma once
// The one log sink. Lines are the system's own texts; callers never pass secrets.
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::foundation {

using LogSink = std::function<void(std::string_view line)>;

// Writes one line to the current sink (stderr unless replaced). Thread-safe.
void logLine(std::string_view line);
// Replaces the sink; an empty function restores stderr. Returns the previous sink.
LogSink setLogSink(LogSink sink);

// Collects every line logged while it lives (tests assert on exact log texts).
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    std::vector<std::string> lines() const;
    bool contains(std::string_view needle) const;  // some line contains the text
private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    LogSink previous_;
};

}  // namespace quorvane::foundation
