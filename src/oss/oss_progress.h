#pragma once
// Upload progress over several bodies in flight: reports only growth, so a body that is sent again
// (a retry) never makes the total go back, and the total never passes what is expected.
#include <cstdint>
#include <map>
#include <mutex>

#include "oss/oss_requests.h"

namespace quorvane::oss {

class OSSProgressTracker {
public:
    // `alreadySent`: bytes stored before this run (a resumed upload), counted from the start.
    OSSProgressTracker(OSSNetworkingUploadProgressBlock block, std::uint64_t totalExpected,
                       std::uint64_t alreadySent = 0);
    // Bytes of body `key` sent so far in its current attempt.
    void update(int key, std::uint64_t sent);
    // Body `key` is stored: its bytes count for good.
    void finish(int key, std::uint64_t size);
    std::uint64_t reported() const;
private:
    void reportLocked();
    OSSNetworkingUploadProgressBlock block_;
    std::uint64_t expected_;
    std::uint64_t done_;
    std::uint64_t reported_;
    std::map<int, std::uint64_t> inFlight_;
    mutable std::mutex mutex_;
};

}  // namespace quorvane::oss
