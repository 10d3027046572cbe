#include "foundation/log.h"

#include <cstdio>

namespace quorvane::foundation {
namespace {
std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
LogSink& currentSink() {
    static LogSink sink;
    return sink;
}
}  // namespace

void logLine(std::string_view line) {
    LogSink sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = currentSink();
    }
    if (sink) {
        sink(line);
        return;
    }
    std::string out(line);
    out.push_back('\n');
    std::fwrite(out.data(), 1, out.size(), stderr);
}

LogSink setLogSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    LogSink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

LogCapture::LogCapture() {
    previous_ = setLogSink([this](std::string_view line) {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    });
}
LogCapture::~LogCapture() { setLogSink(std::move(previous_)); }

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

bool LogCapture::contains(std::string_view needle) const {
    std::lock_guard lock(mutex_);
    for (const auto& l : lines_)
        if (l.find(needle) != std::string::npos) return true;
    return false;
}

}  // namespace quorvane::foundation
