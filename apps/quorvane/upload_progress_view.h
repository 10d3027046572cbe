#pragma once
// What `quorvane upload` shows while it works: one redrawn line on a terminal (the file's bar, or the
// total of several files at once) that always fits the terminal's width, plain lines when the output
// goes to a file or a pipe, or one JSON object per event for programs (--json).
// Every member is thread-safe: the engine's events arrive on its worker threads.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

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
    std::uint64_t bytes = 0;  // success: the file's size
    std::string code;         // failure only
    std::string message;      // failure only
};

struct RunSummary {
    int uploaded = 0, skipped = 0, failed = 0;
    std::uint64_t sent = 0;    // bytes this run sent (not those an earlier run or an earlier copy stored)
    std::uint64_t stored = 0;  // bytes of the files that are stored now
    double seconds = 0;
};

class UploadProgressView {
public:
    using Clock = std::chrono::steady_clock;
    // Redraws of one file's progress are at least this far apart (the last one always shows).
    static constexpr std::chrono::milliseconds kTerminalInterval{100};
    static constexpr std::chrono::milliseconds kJsonInterval{100};
    static constexpr std::chrono::milliseconds kPlainInterval{1000};

    // `columns`: the terminal's width (0: 80); setColumns() changes it when the window does.
    UploadProgressView(ViewMode mode, std::ostream& out, int columns = 0);
    // Quiet: only failures and errors are shown (JSON is never quiet).
    void setQuiet(bool quiet);
    void setColumns(int columns);
    // Asked before each redraw: the new width after the window changed, else 0.
    void setColumnsProbe(std::function<int()> probe);
    // The whole run, so the total line can say how far it is.
    void setPlanned(int files, std::uint64_t bytes);

    void started(const std::string& file, Clock::time_point now);
    // After started: the file continues an earlier upload that had stored `uploaded` bytes.
    void resuming(const std::string& file, std::uint64_t uploaded, std::uint64_t total);
    // Shown values never go down: a part sent again after a retry does not count twice.
    void progress(const std::string& file, std::uint64_t uploaded, std::uint64_t total, Clock::time_point now);
    // The upload of `file` goes again in `wait` seconds: retry `count` of `limit`, after `cause`.
    void retry(const std::string& file, int count, int limit, const std::string& cause, double wait);
    // One request of `file` is sent again inside the object-storage client (`count` of its `limit`).
    void requestRetry(const std::string& file, int count, int limit, const std::string& cause, double wait);
    void retryResume(const std::string& file);
    // Nothing has moved for `file` (no byte sent, no answer) for `seconds`: called about once a second
    // while that lasts; the terminal line shows it in place of the rate, other modes every 10 s.
    void waiting(const std::string& file, int seconds);
    void expire(const std::string& what);
    void finished(const FileOutcome& outcome);
    void skipped(const std::string& file, const std::string& bucket, const std::string& object, std::uint64_t size);
    void planned(const std::string& file, const std::string& bucket, const std::string& object, std::uint64_t size);
    void verified(const std::string& file, std::uint64_t size, std::uint64_t crc64, bool ok);
    void interrupted(const std::string& resumeHint);
    void summary(const RunSummary& summary);
    // A line of information (plain and terminal modes: as it is; JSON: {"event":"note"}).
    void note(const std::string& text);
    // An error that ends the run before or outside the files: usage (exit 2) or setup.
    void error(const std::string& kind, const std::string& message, int exitStatus);

    // "1.5 MiB", "812 B": binary units, one decimal.
    static std::string humanBytes(double bytes);
    // "1:05", "12:00:03"; "--:--" when unknown.
    static std::string humanDuration(std::optional<double> seconds);
    // The terminal line for the given state, at most `columns - 1` characters wide (the last column is
    // left free: writing there wraps on some terminals).
    // `silentFor`: seconds without an answer, shown in place of the rate and the ETA.
    static std::string fitLine(const std::string& name, std::uint64_t uploaded, std::uint64_t total,
                               std::optional<double> rate, int columns, std::optional<int> silentFor = std::nullopt);
    // After this long without a byte moving or an answer, the view says so.
    static constexpr std::chrono::seconds kSilenceShownAfter{5};
    // Characters as a terminal counts them (UTF-8 code points).
    static std::size_t displayWidth(const std::string& text);
    // Bytes per second over the recent samples; nullopt until two samples lie apart in time.
    std::optional<double> rate() const;

private:
    struct Sample {
        Clock::time_point at;
        std::uint64_t bytes;
    };
    struct FileState {
        std::uint64_t uploaded = 0, total = 0, base = 0;  // base: stored before this run
        std::optional<Clock::time_point> lastDraw;
        bool active = false;
    };
    void emit(Value event);
    void lineLocked(const std::string& text);
    void endBarLocked();
    void drawBarLocked();
    // This run's bytes of a file: what it sent past what an earlier run had stored.
    static std::uint64_t sentThisRun(const FileState& f) { return f.uploaded - std::min(f.base, f.uploaded); }
    // Every change of a file's counts but progress goes through here, so runBytes_ stays their sum.
    void replaceFileLocked(FileState& state, const FileState& next);
    void addSampleLocked(Clock::time_point now);
    std::optional<double> rateLocked() const;
    std::chrono::milliseconds intervalLocked() const;

    mutable std::mutex mutex_;
    ViewMode mode_;
    std::ostream& out_;
    int columns_;
    std::function<int()> columnsProbe_;
    bool quiet_ = false;
    int plannedFiles_ = 0;
    std::uint64_t plannedBytes_ = 0;
    std::uint64_t doneBytes_ = 0;  // of files that ended, counted in the total line
    std::uint64_t runBytes_ = 0;   // the sum of sentThisRun over files_, kept as they change
    std::map<std::string, FileState> files_;
    bool barOpen_ = false;  // a terminal line without its newline yet
    std::optional<Clock::time_point> lastBar_;
    std::deque<Sample> samples_;
    // Files nothing has moved for: the seconds last told, and the seconds last printed as a line.
    struct Silence {
        int seconds = 0, printed = 0;
    };
    std::map<std::string, Silence> silent_;
};

}  // namespace quorvane::app
