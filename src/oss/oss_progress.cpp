#include "oss/oss_progress.h"

#include <algorithm>

namespace quorvane::oss {

OSSProgressTracker::OSSProgressTracker(OSSNetworkingUploadProgressBlock block, std::uint64_t totalExpected,
                                       std::uint64_t alreadySent)
    : block_(std::move(block)), expected_(totalExpected), done_(alreadySent), reported_(alreadySent) {}

void OSSProgressTracker::update(int key, std::uint64_t sent) {
    std::lock_guard lock(mutex_);
    inFlight_[key] = sent;
    reportLocked();
}

void OSSProgressTracker::finish(int key, std::uint64_t size) {
    std::lock_guard lock(mutex_);
    inFlight_.erase(key);
    done_ += size;
    reportLocked();
}

std::uint64_t OSSProgressTracker::reported() const {
    std::lock_guard lock(mutex_);
    return reported_;
}

// Runs under the mutex, so the block is called by one thread at a time, in order.
void OSSProgressTracker::reportLocked() {
    std::uint64_t total = done_;
    for (const auto& [key, sent] : inFlight_) total += sent;
    total = std::min(total, expected_);
    if (total <= reported_) return;
    auto delta = total - reported_;
    reported_ = total;
    if (block_)
        block_(static_cast<std::int64_t>(delta), static_cast<std::int64_t>(total), static_cast<std::int64_t>(expected_));
}

}  // namespace quorvane::oss
