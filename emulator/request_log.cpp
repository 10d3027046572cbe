#include "emulator/request_log.h"

#include <cstdio>

#include "emulator/util.h"
#include "foundation/log.h"

namespace quorvane::emulator {
namespace {

bool secretName(std::string_view rawName) {
    auto name = toLower(urlDecode(rawName, true));
    for (const char* word : {"signature", "token", "credential", "secret", "auth"})
        if (name.find(word) != std::string::npos) return true;
    return false;
}

std::string printable(std::string_view text) {
    std::string out;
    for (unsigned char c : text) {
        if (c <= 0x20 || c == 0x7f) {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace

std::string redactedTarget(std::string_view target) {
    auto q = target.find('?');
    std::string out = printable(target.substr(0, q));
    if (q == std::string_view::npos) return out;
    out += '?';
    auto query = target.substr(q + 1);
    bool first = true;
    while (true) {
        auto amp = query.find('&');
        auto pair = query.substr(0, amp);
        auto eq = pair.find('=');
        if (!first) out += '&';
        first = false;
        if (eq != std::string_view::npos && secretName(pair.substr(0, eq)))
            out += printable(pair.substr(0, eq)) + "=REDACTED";
        else
            out += printable(pair);
        if (amp == std::string_view::npos) break;
        query = query.substr(amp + 1);
    }
    return out;
}

std::string logLineOf(const LoggedRequest& r) {
    return r.time + " " + r.method + " " + r.target + " " + (r.operation.empty() ? "-" : r.operation) + " " +
           (r.status ? std::to_string(r.status) : std::string("reset")) + " in=" + std::to_string(r.in) +
           " out=" + std::to_string(r.out) + " " + std::to_string(r.ms) + "ms";
}

void RequestLog::add(LoggedRequest r, bool print) {
    if (print) foundation::logLine(logLineOf(r));
    std::lock_guard lock(mutex_);
    recent_.push_back(std::move(r));
    while (recent_.size() > keep_) recent_.pop_front();
}

std::vector<LoggedRequest> RequestLog::recent() const {
    std::lock_guard lock(mutex_);
    return {recent_.begin(), recent_.end()};
}

void RequestLog::clear() {
    std::lock_guard lock(mutex_);
    recent_.clear();
}

}  // namespace quorvane::emulator
