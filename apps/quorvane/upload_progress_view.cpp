#include "upload_progress_view.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "terminal_text.h"

namespace quorvane::app {
namespace {

constexpr std::chrono::seconds kRateWindow{3};
constexpr std::size_t kBarWidth = 28;
constexpr std::size_t kMinBarWidth = 10;
constexpr std::size_t kNameWidth = 24;
constexpr std::size_t kMinNameWidth = 8;
constexpr int kDefaultColumns = 80;

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

Value optionalText(const std::optional<std::string>& text) { return text ? Value(*text) : Value(nullptr); }

// The first `width` characters of `text` ("..." at the end when cut and there is room for it).
std::string clip(const std::string& text, std::size_t width) {
    if (UploadProgressView::displayWidth(text) <= width) return text;
    std::size_t keep = width >= 4 ? width - 3 : width;
    std::size_t bytes = 0;
    for (std::size_t chars = 0; bytes < text.size() && chars < keep; ++chars) {
        ++bytes;
        while (bytes < text.size() && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) ++bytes;
    }
    return text.substr(0, bytes) + (width >= 4 ? "..." : "");
}

std::string padded(const std::string& text, std::size_t width) {
    std::string out = clip(text, width);
    out.append(width - UploadProgressView::displayWidth(out), ' ');
    return out;
}

std::string shortName(const std::string& file) {
    std::string name = std::filesystem::path(file).filename().string();
    return printableText(name.empty() ? file : name);
}

// ISO-8601 UTC with milliseconds, the time of every JSON event.
std::string timestampNow() {
    auto now = std::chrono::system_clock::now();
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

}  // namespace

UploadProgressView::UploadProgressView(ViewMode mode, std::ostream& out, int columns)
    : mode_(mode), out_(out), columns_(columns > 0 ? columns : kDefaultColumns) {}

void UploadProgressView::setQuiet(bool quiet) {
    std::lock_guard lock(mutex_);
    quiet_ = quiet && mode_ != ViewMode::Json;
}

void UploadProgressView::setColumns(int columns) {
    std::lock_guard lock(mutex_);
    columns_ = columns > 0 ? columns : kDefaultColumns;
}

void UploadProgressView::setColumnsProbe(std::function<int()> probe) {
    std::lock_guard lock(mutex_);
    columnsProbe_ = std::move(probe);
}

void UploadProgressView::setPlanned(int files, std::uint64_t bytes) {
    std::lock_guard lock(mutex_);
    plannedFiles_ = files;
    plannedBytes_ = bytes;
}

std::size_t UploadProgressView::displayWidth(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string UploadProgressView::humanBytes(double bytes) {
    static const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (bytes >= 1024.0 && unit < 4) {
        bytes /= 1024.0;
        ++unit;
    }
    return unit == 0 ? format("%.0f B", bytes) : format("%.1f", bytes) + " " + units[unit];
}

std::string UploadProgressView::humanDuration(std::optional<double> seconds) {
    if (!seconds || *seconds < 0 || *seconds > 359999) return "--:--";
    auto total = static_cast<long long>(*seconds + 0.5);
    char text[32];
    if (total >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
    return text;
}

std::string UploadProgressView::fitLine(const std::string& name, std::uint64_t uploaded, std::uint64_t total,
                                        std::optional<double> rate, int columns, std::optional<int> silentFor) {
    const std::size_t room = columns > 1 ? static_cast<std::size_t>(columns - 1) : 0;
    double fraction = total > 0 ? std::min(1.0, static_cast<double>(uploaded) / static_cast<double>(total)) : 1.0;
    std::optional<double> eta;
    if (rate && *rate > 0) eta = static_cast<double>(total - std::min(uploaded, total)) / *rate;
    const std::string percent = " " + format("%3.0f%%", fraction * 100.0);
    const std::string bytes = "  " + humanBytes(double(uploaded)) + " / " + humanBytes(double(total));
    const std::string speed =
        silentFor ? "  no answer for " + std::to_string(*silentFor) + " s"
                  : "  " + (rate ? humanBytes(*rate) + "/s" : std::string("--")) + "  ETA " + humanDuration(eta);
    const std::size_t nameWidth = std::min(displayWidth(name), kNameWidth);
    const std::size_t minName = std::min(nameWidth, kMinNameWidth);
    // The richest line that fits: all parts, then without speed, then without the byte counts; the bar
    // gives way to the name down to its least width, and goes before the percentage.
    for (const std::string& tail : {percent + bytes + speed, percent + bytes, percent}) {
        if (tail.size() + minName + 3 + kMinBarWidth > room) continue;
        std::size_t left = room - tail.size();
        std::size_t shownName = std::min(nameWidth, left - 3 - kMinBarWidth);
        std::size_t barWidth = std::min(kBarWidth, left - shownName - 3);
        auto filled = static_cast<std::size_t>(fraction * static_cast<double>(barWidth));
        std::string bar(filled, '#');
        bar.append(barWidth - filled, '.');
        return padded(name, shownName) + " [" + bar + "]" + tail;
    }
    for (const std::string& tail : {percent + bytes, percent})
        if (tail.size() + minName <= room) return padded(name, std::min(nameWidth, room - tail.size())) + tail;
    return clip(name + percent, room);
}

void UploadProgressView::emit(Value event) {
    event["time"] = timestampNow();
    // Names and server text may hold any bytes: invalid UTF-8 becomes U+FFFD instead of an exception.
    out_ << event.dump(-1, ' ', false, Value::error_handler_t::replace) << '\n';
    out_.flush();
}

void UploadProgressView::lineLocked(const std::string& text) {
    endBarLocked();
    out_ << text << std::endl;
}

void UploadProgressView::endBarLocked() {
    if (!barOpen_) return;
    out_ << '\n';
    barOpen_ = false;
}

std::chrono::milliseconds UploadProgressView::intervalLocked() const {
    switch (mode_) {
    case ViewMode::Terminal: return kTerminalInterval;
    case ViewMode::Json: return kJsonInterval;
    default: return kPlainInterval;
    }
}

void UploadProgressView::replaceFileLocked(FileState& state, const FileState& next) {
    runBytes_ -= sentThisRun(state);
    state = next;
    runBytes_ += sentThisRun(state);
}

void UploadProgressView::addSampleLocked(Clock::time_point now) {
    samples_.push_back({now, runBytes_});
    while (samples_.size() > 2 && now - samples_.front().at > kRateWindow) samples_.pop_front();
}

std::optional<double> UploadProgressView::rateLocked() const {
    if (samples_.size() < 2) return std::nullopt;
    const auto& first = samples_.front();
    const auto& last = samples_.back();
    double seconds = std::chrono::duration<double>(last.at - first.at).count();
    if (seconds <= 0.0 || last.bytes < first.bytes) return std::nullopt;
    return static_cast<double>(last.bytes - first.bytes) / seconds;
}

std::optional<double> UploadProgressView::rate() const {
    std::lock_guard lock(mutex_);
    return rateLocked();
}

void UploadProgressView::drawBarLocked() {
    if (columnsProbe_)
        if (int columns = columnsProbe_(); columns > 0) columns_ = columns;
    std::vector<const std::pair<const std::string, FileState>*> active;
    for (const auto& entry : files_)
        if (entry.second.active) active.push_back(&entry);
    // The longest silence of the files the line stands for: the one shown, or any of the run's.
    std::optional<int> silentFor;
    for (const auto& [name, silence] : silent_)
        if ((active.size() != 1 || name == active.front()->first) && (!silentFor || silence.seconds > *silentFor))
            silentFor = silence.seconds;
    std::string line;
    if (active.size() == 1) {
        const auto& [name, file] = *active.front();
        line = fitLine(shortName(name), file.uploaded, file.total, rateLocked(), columns_, silentFor);
    } else {
        // Several files at once: one line for the whole run.
        std::uint64_t uploaded = doneBytes_, total = doneBytes_;
        int ended = 0;
        for (const auto& [name, file] : files_) {
            if (file.active) uploaded += file.uploaded, total += file.total;
            else ++ended;
        }
        total = std::max(total, plannedBytes_);
        std::string label = std::to_string(ended) + "/" + std::to_string(std::max<int>(plannedFiles_, int(files_.size()))) +
                            " files";
        line = fitLine(label, uploaded, total, rateLocked(), columns_, silentFor);
    }
    out_ << "\r\033[K" << line << std::flush;
    barOpen_ = true;
}

void UploadProgressView::started(const std::string& file, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    silent_.erase(file);
    replaceFileLocked(files_[file], FileState{0, 0, 0, std::nullopt, true});
    if (samples_.empty()) samples_.push_back({now, runBytes_});
    if (mode_ == ViewMode::Json) return emit({{"event", "started"}, {"file", file}});
    if (!quiet_) lineLocked("uploading " + printableText(file));
}

void UploadProgressView::resuming(const std::string& file, std::uint64_t uploaded, std::uint64_t total) {
    std::lock_guard lock(mutex_);
    auto it = files_.find(file);
    if (it == files_.end()) return;
    // The rate counts this run's bytes only: start from what was stored before.
    FileState next = it->second;
    next.base = uploaded;
    next.uploaded = std::max(next.uploaded, uploaded);
    next.total = total;
    replaceFileLocked(it->second, next);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "resuming"}, {"file", file}, {"uploaded", uploaded}, {"total", total}});
    if (!quiet_)
        lineLocked("resuming " + printableText(file) + ": " + std::to_string(uploaded) + " of " +
                   std::to_string(total) + " bytes already uploaded");
}

void UploadProgressView::progress(const std::string& file, std::uint64_t uploaded, std::uint64_t total,
                                  Clock::time_point now) {
    std::lock_guard lock(mutex_);
    auto it = files_.find(file);
    if (it == files_.end() || !it->second.active) return;
    auto& state = it->second;
    if (!silent_.empty()) silent_.erase(file);
    state.total = total;
    const auto before = sentThisRun(state);
    state.uploaded = std::max(state.uploaded, std::min(uploaded, total));
    runBytes_ += sentThisRun(state) - before;  // never less: uploaded only grows here
    addSampleLocked(now);
    const bool last = uploaded >= total;
    auto& lastDraw = mode_ == ViewMode::Terminal ? lastBar_ : state.lastDraw;
    if (quiet_ || (!last && lastDraw && now - *lastDraw < intervalLocked())) return;
    lastDraw = now;
    switch (mode_) {
    case ViewMode::Json: {
        Value event{{"event", "progress"}, {"file", file}, {"uploaded", state.uploaded}, {"total", total}};
        if (auto speed = rateLocked()) event["rate"] = static_cast<std::uint64_t>(*speed);
        return emit(event);
    }
    case ViewMode::Terminal: return drawBarLocked();
    case ViewMode::Plain:
        out_ << shortName(file) << ": "
             << format("%.0f%%", total ? 100.0 * double(state.uploaded) / double(total) : 100.0) << " ("
             << state.uploaded << " of " << total << " bytes)" << std::endl;
        return;
    }
}

void UploadProgressView::retry(const std::string& file, int count, int limit, const std::string& cause, double wait) {
    std::lock_guard lock(mutex_);
    silent_.erase(file);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "retry"}, {"file", file}, {"count", count}, {"limit", limit}, {"cause", cause},
                     {"wait", wait}});
    if (!quiet_)
        lineLocked("trouble with " + printableText(file) + " (" + printableText(cause) + "): retry " +
                   std::to_string(count) + " of " + std::to_string(limit) + " in " + format("%.1f", wait) + " s");
}

void UploadProgressView::requestRetry(const std::string& file, int count, int limit, const std::string& cause,
                                      double wait) {
    std::lock_guard lock(mutex_);
    silent_.erase(file);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "requestRetry"}, {"file", file}, {"count", count}, {"limit", limit}, {"cause", cause},
                     {"wait", wait}});
    if (!quiet_)
        lineLocked("a request for " + printableText(file) + " failed (" + printableText(cause) +
                   "): sending it again in " + format("%.1f", wait) + " s, " + std::to_string(count) + " of " +
                   std::to_string(limit));
}

void UploadProgressView::waiting(const std::string& file, int seconds) {
    std::lock_guard lock(mutex_);
    auto& silence = silent_[file];
    silence.seconds = seconds;
    if (quiet_) return;
    if (mode_ == ViewMode::Terminal) return drawBarLocked();
    if (silence.printed != 0 && seconds < silence.printed + 10) return;
    silence.printed = seconds;
    if (mode_ == ViewMode::Json) return emit({{"event", "waiting"}, {"file", file}, {"seconds", seconds}});
    lineLocked(printableText(file) + ": no answer for " + std::to_string(seconds) + " s");
}

void UploadProgressView::retryResume(const std::string& file) {
    std::lock_guard lock(mutex_);
    silent_.erase(file);
    if (mode_ == ViewMode::Json) return emit({{"event", "retryResume"}, {"file", file}});
    if (!quiet_) lineLocked("the upload of " + printableText(file) + " moves again");
}

void UploadProgressView::expire(const std::string& what) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "expire"}, {"message", what}});
    lineLocked(printableText(what));
}

void UploadProgressView::finished(const FileOutcome& o) {
    std::lock_guard lock(mutex_);
    silent_.erase(o.file);
    if (auto it = files_.find(o.file); it != files_.end() && it->second.active) {
        it->second.active = false;
        doneBytes_ += it->second.total;
    }
    if (mode_ == ViewMode::Json) {
        Value event{{"event", o.success ? "success" : "failure"}, {"file", o.file}, {"videoId", optionalText(o.videoId)},
                    {"bucket", optionalText(o.bucket)}, {"object", optionalText(o.object)}};
        if (o.success)
            event["bytes"] = o.bytes;
        else {
            event["code"] = o.code;
            event["message"] = o.message;
        }
        return emit(event);
    }
    if (!o.success) {
        lineLocked("failed " + printableText(o.file) + ": " + printableText(o.message) + " (" + printableText(o.code) +
                   ")");
        return;
    }
    if (quiet_) return;
    std::string line = "uploaded " + printableText(o.file) + " (" + std::to_string(o.bytes) + " bytes) to " +
                       printableText(o.bucket.value_or("?")) + "/" + printableText(o.object.value_or("?"));
    if (o.videoId) line += ", video id " + printableText(*o.videoId);
    lineLocked(line);
}

void UploadProgressView::skipped(const std::string& file, const std::string& bucket, const std::string& object,
                                 std::uint64_t size) {
    std::lock_guard lock(mutex_);
    silent_.erase(file);
    doneBytes_ += size;
    replaceFileLocked(files_[file], FileState{size, size, size, std::nullopt, false});
    if (mode_ == ViewMode::Json)
        return emit({{"event", "skipped"}, {"file", file}, {"bucket", bucket}, {"object", object}, {"size", size},
                     {"reason", "stored with the same size and CRC-64"}});
    if (!quiet_)
        lineLocked("already stored " + printableText(file) + " as " + printableText(bucket) + "/" +
                   printableText(object) + " (same size and CRC-64): nothing sent");
}

void UploadProgressView::planned(const std::string& file, const std::string& bucket, const std::string& object,
                                 std::uint64_t size) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "planned"}, {"file", file}, {"bucket", bucket}, {"object", object}, {"size", size}});
    if (!quiet_)
        lineLocked("would upload " + printableText(file) + " (" + std::to_string(size) + " bytes) to " +
                   printableText(bucket) + "/" + printableText(object));
}

void UploadProgressView::verified(const std::string& file, std::uint64_t size, std::uint64_t crc64, bool ok) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "verified"}, {"file", file}, {"ok", ok}, {"size", size}, {"crc64", std::to_string(crc64)}});
    if (quiet_ && ok) return;
    lineLocked(std::string(ok ? "verified " : "MISMATCH ") + printableText(file) + ": " + std::to_string(size) +
               " bytes, CRC-64 " + std::to_string(crc64));
}

void UploadProgressView::interrupted(const std::string& resumeHint) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "interrupted"}, {"resume", resumeHint}});
    lineLocked("paused; the parts sent so far are kept. Run the same command again to resume:\n  " +
               printableText(resumeHint));
}

void UploadProgressView::summary(const RunSummary& s) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "summary"}, {"uploaded", s.uploaded}, {"skipped", s.skipped}, {"failed", s.failed},
                     {"bytes", s.sent}, {"stored", s.stored}, {"seconds", s.seconds}});
    if (quiet_) return endBarLocked();
    std::string line = std::to_string(s.uploaded) + " uploaded, ";
    if (s.skipped) line += std::to_string(s.skipped) + " already stored, ";
    line += std::to_string(s.failed) + " failed, " + humanBytes(double(s.sent)) + " sent in " +
            format("%.1f", s.seconds) + " s";
    lineLocked(line);
}

void UploadProgressView::note(const std::string& text) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "note"}, {"message", text}});
    if (!quiet_) lineLocked(printableText(text));
}

void UploadProgressView::error(const std::string& kind, const std::string& message, int exitStatus) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "error"}, {"kind", kind}, {"message", message}, {"exit", exitStatus}});
    endBarLocked();
}

}  // namespace quorvane::app
