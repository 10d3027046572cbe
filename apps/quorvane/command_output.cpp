#include "command_output.h"

#include <chrono>
#include <cstdio>
#include <ctime>

#include "terminal_text.h"
#include "upload_session.h"

namespace quorvane::app {

std::string eventTimeNow() {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
                  .count();
    std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

CommandOutput::CommandOutput(std::string command, bool json, std::ostream& out, std::ostream& err)
    : command_(std::move(command)), json_(json), out_(out), err_(err) {}

void CommandOutput::event(const std::string& name, Value fields) {
    if (!json_) return;
    Value event = Value::object();
    event["event"] = name;
    event["time"] = eventTimeNow();
    for (auto& [key, value] : fields.items()) event[key] = value;
    std::lock_guard lock(mutex_);
    // Keys and server text may hold any bytes: invalid UTF-8 becomes U+FFFD instead of an exception.
    out_ << event.dump(-1, ' ', false, Value::error_handler_t::replace) << std::endl;
}

void CommandOutput::line(const std::string& text) {
    if (json_) return;
    std::lock_guard lock(mutex_);
    out_ << text << std::endl;
}

int CommandOutput::error(const std::string& kind, const std::string& message, int exit) {
    {
        std::lock_guard lock(mutex_);
        err_ << "quorvane " << command_ << ": " << printableText(message) << std::endl;
    }
    event("error", {{"kind", kind}, {"message", printableText(message)}, {"exit", exit}});
    return exit;
}

int CommandOutput::usage(const std::string& message) { return error("usage", message, kExitUsage); }
int CommandOutput::setup(const std::string& message) { return error("setup", message, kExitSomeFailed); }

void CommandOutput::failure(const std::string& message, const std::string& eventName, Value fields) {
    {
        std::lock_guard lock(mutex_);
        err_ << "quorvane " << command_ << ": " << printableText(message) << std::endl;
    }
    event(eventName, std::move(fields));
}

}  // namespace quorvane::app
