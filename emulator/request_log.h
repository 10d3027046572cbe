#pragma once
// The request log: one compact line per request, printed when asked, and the last ones kept for the
// console. Query values that authenticate (signatures, tokens, credentials) never reach it.
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::emulator {

struct LoggedRequest {
    std::string time;       // ISO-8601 UTC with milliseconds
    std::string method;
    std::string target;     // path and query as sent, redacted
    std::string operation;  // "-" when none was named
    int status = 0;         // 0: the connection was reset instead
    std::uint64_t in = 0;   // request body bytes read
    std::uint64_t out = 0;  // answer body bytes
    long long ms = 0;       // from the head's arrival to the answer being ready
};

// The raw request target with every query value whose name speaks of a signature, token, credential,
// secret or authorization replaced by "REDACTED"; spaces and control bytes percent-encoded.
std::string redactedTarget(std::string_view target);
// "2026-01-02T03:04:05.678Z PUT /b/k?partNumber=1&uploadId=X UploadPart 200 in=1048576 out=0 12ms"
std::string logLineOf(const LoggedRequest& r);

class RequestLog {
public:
    explicit RequestLog(std::size_t keep = 200) : keep_(keep) {}
    void add(LoggedRequest r, bool print);
    std::vector<LoggedRequest> recent() const;  // oldest first
    void clear();

private:
    std::size_t keep_;
    mutable std::mutex mutex_;
    std::deque<LoggedRequest> recent_;
};

}  // namespace quorvane::emulator
