#include "upload_progress_view.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>

namespace quorvane::app {
namespace {

constexpr std::chrono::seconds kRateWindow{3};
constexpr int kBarWidth = 28;
constexpr std::size_t kNameWidth = 24;

std::string displayName(const std::string& file) {
    std::string name = std::filesystem::path(file).filename().string();
    if (name.empty()) name = file;
    if (name.size() > kNameWidth) name = name.substr(0, kNameWidth - 3) + "...";
    return name;
}

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

Value optionalText(const std::optional<std::string>& text) { return text ? Value(*text) : Value(nullptr); }

}  // namespace

UploadProgressView::UploadProgressView(ViewMode mode, std::ostream& out) : mode_(mode), out_(out) {}

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

void UploadProgressView::emit(const Value& event) {
    out_ << event.dump() << '\n';
    out_.flush();
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

void UploadProgressView::addSampleLocked(Clock::time_point now, std::uint64_t bytes) {
    samples_.push_back({now, bytes});
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

std::string UploadProgressView::barLineLocked(std::uint64_t uploaded, std::uint64_t total) const {
    double fraction = total > 0 ? std::min(1.0, static_cast<double>(uploaded) / static_cast<double>(total)) : 1.0;
    int filled = static_cast<int>(fraction * kBarWidth);
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(kBarWidth - filled), '.');
    auto speed = rateLocked();
    std::optional<double> eta;
    if (speed && *speed > 0) eta = static_cast<double>(total - std::min(uploaded, total)) / *speed;
    std::string line = displayName(current_);
    line.append(kNameWidth - std::min(kNameWidth, line.size()), ' ');
    line += " [" + bar + "] " + format("%3.0f%%", fraction * 100.0) + "  " + humanBytes(double(uploaded)) + " / " +
            humanBytes(double(total));
    line += "  " + (speed ? humanBytes(*speed) + "/s" : std::string("--")) + "  ETA " + humanDuration(eta);
    return line;
}

void UploadProgressView::started(const std::string& file, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    endBarLocked();
    current_ = file;
    lastDraw_.reset();
    samples_.clear();
    samples_.push_back({now, 0});
    if (mode_ == ViewMode::Json) return emit({{"event", "started"}, {"file", file}});
    out_ << "uploading " << file << std::endl;
}

void UploadProgressView::resuming(const std::string& file, std::uint64_t uploaded, std::uint64_t total) {
    std::lock_guard lock(mutex_);
    // The rate counts this run's bytes only: start from what was stored before.
    if (file == current_ && samples_.size() == 1) samples_.front().bytes = uploaded;
    if (mode_ == ViewMode::Json)
        return emit({{"event", "resuming"}, {"file", file}, {"uploaded", uploaded}, {"total", total}});
    endBarLocked();
    out_ << "resuming " << file << ": " << uploaded << " of " << total << " bytes already uploaded" << std::endl;
}

void UploadProgressView::progress(const std::string& file, std::uint64_t uploaded, std::uint64_t total,
                                  Clock::time_point now) {
    std::lock_guard lock(mutex_);
    if (file != current_) return;
    addSampleLocked(now, uploaded);
    const bool last = uploaded >= total;
    if (!last && lastDraw_ && now - *lastDraw_ < intervalLocked()) return;
    lastDraw_ = now;
    switch (mode_) {
    case ViewMode::Json: {
        Value event{{"event", "progress"}, {"file", file}, {"uploaded", uploaded}, {"total", total}};
        if (auto speed = rateLocked()) event["rate"] = static_cast<std::uint64_t>(*speed);
        return emit(event);
    }
    case ViewMode::Terminal:
        out_ << "\r\033[K" << barLineLocked(uploaded, total) << std::flush;
        barOpen_ = true;
        return;
    case ViewMode::Plain:
        out_ << displayName(file) << ": " << format("%.0f%%", total ? 100.0 * double(uploaded) / double(total) : 100.0)
             << " (" << uploaded << " of " << total << " bytes)" << std::endl;
        return;
    }
}

void UploadProgressView::retry() {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "retry"}, {"file", current_}});
    endBarLocked();
    out_ << "network trouble: retrying every 2 s" << std::endl;
}

void UploadProgressView::retryResume() {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "retryResume"}, {"file", current_}});
    endBarLocked();
    out_ << "the upload moves again" << std::endl;
}

void UploadProgressView::expire(const std::string& what) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "expire"}, {"file", current_}, {"message", what}});
    endBarLocked();
    out_ << what << std::endl;
}

void UploadProgressView::finished(const FileOutcome& o) {
    std::lock_guard lock(mutex_);
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
    endBarLocked();
    if (!o.success) {
        out_ << "failed " << o.file << ": " << o.message << " (" << o.code << ")" << std::endl;
        return;
    }
    out_ << "uploaded " << o.file << " (" << o.bytes << " bytes) to " << o.bucket.value_or("?") << "/"
         << o.object.value_or("?");
    if (o.videoId) out_ << ", video id " << *o.videoId;
    out_ << std::endl;
}

void UploadProgressView::verified(const std::string& file, std::uint64_t size, std::uint64_t crc64, bool ok) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "verified"}, {"file", file}, {"ok", ok}, {"size", size}, {"crc64", std::to_string(crc64)}});
    endBarLocked();
    out_ << (ok ? "verified " : "MISMATCH ") << file << ": " << size << " bytes, CRC-64 " << crc64 << std::endl;
}

void UploadProgressView::interrupted(const std::string& resumeHint) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "interrupted"}, {"resume", resumeHint}});
    endBarLocked();
    out_ << "paused; the parts sent so far are kept. Run the same command again to resume:\n  " << resumeHint
         << std::endl;
}

void UploadProgressView::summary(int uploaded, int failed, std::uint64_t bytes, double seconds) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json)
        return emit({{"event", "summary"}, {"uploaded", uploaded}, {"failed", failed}, {"bytes", bytes},
                     {"seconds", seconds}});
    endBarLocked();
    out_ << uploaded << " uploaded, " << failed << " failed, " << humanBytes(double(bytes)) << " in "
         << format("%.1f", seconds) << " s" << std::endl;
}

void UploadProgressView::note(const std::string& text) {
    std::lock_guard lock(mutex_);
    if (mode_ == ViewMode::Json) return emit({{"event", "note"}, {"message", text}});
    endBarLocked();
    out_ << text << std::endl;
}

}  // namespace quorvane::app
