#pragma once
// What `quorvane upload` shows while it works: a redrawn bar per file on a terminal, plain lines when
// the output goes to a file or a pipe, or one JSON object per event for programs (--json).
// Every member is thread-safe: the engine's events arrive on its worker threads.
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "foundation/value.h"

namespace quorvane::app {

enum class ViewMode { Terminal, Plain, Json };

// How one file ended, as the summary and the success/failure events tell it.
struct FileOutcome {
    std::string file;
    bool success = false;
    std::optional<std::string> videoId;
    std::optional<std::string> bucket;
    std::optional<std::string> object;
    std::uint64_t bytes = 0;
    std::string code;     // failure only
    std::string message;  // failure only
};

class UploadProgressView {
public:
    using Clock = std::chrono::steady_clock;
    // Redraws of one file's progress are at least this far apart (the last one always shows).
    static constexpr std::chrono::milliseconds kTerminalInterval{100};
    static constexpr std::chrono::milliseconds kJsonInterval{100};
    static constexpr std::chrono::milliseconds kPlainInterval{1000};

    UploadProgressView(ViewMode mode, std::ostream& out);

    void started(const std::string& file, Clock::time_point now);
    // After started: the file continues an earlier upload that had stored `uploaded` bytes.
    void resuming(const std::string& file, std::uint64_t uploaded, std::uint64_t total);
    void progress(const std::string& file, std::uint64_t uploaded, std::uint64_t total, Clock::time_point now);
    void retry();
    void retryResume();
    void expire(const std::string& what);
    void finished(const FileOutcome& outcome);
    void verified(const std::string& file, std::uint64_t size, std::uint64_t crc64, bool ok);
    void interrupted(const std::string& resumeHint);
    void summary(int uploaded, int failed, std::uint64_t bytes, double seconds);
    // A line of information (plain and terminal modes: as it is; JSON: {"event":"note"}).
    void note(const std::string& text);

    // "1.5 MiB", "812 B": binary units, one decimal.
    static std::string humanBytes(double bytes);
    // "1:05", "12:00:03"; "--:--" when unknown.
    static std::string humanDuration(std::optional<double> seconds);
    // Bytes per second over the recent samples; nullopt until two samples lie apart in time.
    std::optional<double> rate() const;

private:
    struct Sample {
        Clock::time_point at;
        std::uint64_t bytes;
    };
    void emit(const Value& event);
    void endBarLocked();
    void addSampleLocked(Clock::time_point now, std::uint64_t bytes);
    std::optional<double> rateLocked() const;
    std::string barLineLocked(std::uint64_t uploaded, std::uint64_t total) const;
    std::chrono::milliseconds intervalLocked() const;

    mutable std::mutex mutex_;
    ViewMode mode_;
    std::ostream& out_;
    std::string current_;  // the file whose progress shows now
    bool barOpen_ = false;  // a terminal line without its newline yet
    std::optional<Clock::time_point> lastDraw_;
    std::deque<Sample> samples_;
};

}  // namespace quorvane::app
