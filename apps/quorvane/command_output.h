#pragma once
// What the object-storage commands (ls, get, rm, uploads, verify, presign, config) print: with --json one
// object per line on standard output, each with "event" and "time", else lines of text; errors on
// standard error as well. Exit statuses as `quorvane upload` has them.
#include <iostream>
#include <mutex>
#include <string>

#include "foundation/value.h"

namespace quorvane::app {

class CommandOutput {
public:
    CommandOutput(std::string command, bool json, std::ostream& out = std::cout, std::ostream& err = std::cerr);
    bool json() const { return json_; }
    // One JSON event (fields of an object, "event" and "time" added); nothing in text mode.
    void event(const std::string& name, Value fields);
    // A line of text (text mode only).
    void line(const std::string& text);
    // "quorvane CMD: message" on standard error, and an error event {kind, message, exit}; returns `exit`.
    int error(const std::string& kind, const std::string& message, int exit);
    int usage(const std::string& message);  // exit 2
    int setup(const std::string& message);  // exit 1
    // A failure of one item: standard error, and the JSON event given.
    void failure(const std::string& message, const std::string& eventName, Value fields);

private:
    std::string command_;
    bool json_;
    std::ostream& out_;
    std::ostream& err_;
    std::mutex mutex_;
};

// ISO-8601 UTC with milliseconds.
std::string eventTimeNow();

}  // namespace quorvane::app
