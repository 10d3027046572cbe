#include "oss/oss_cancellation.h"

#include <vector>

namespace quorvane::oss {

void OSSCancellationToken::cancel() {
    std::vector<std::function<void()>> actions;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        for (auto& [id, action] : actions_) actions.push_back(std::move(action));
        actions_.clear();
    }
    for (auto& a : actions) a();
}

bool OSSCancellationToken::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

int OSSCancellationToken::add(std::function<void()> onCancel) {
    std::unique_lock lock(mutex_);
    if (cancelled_) {
        lock.unlock();
        onCancel();
        return 0;
    }
    int id = nextId_++;
    actions_.emplace(id, std::move(onCancel));
    return id;
}

void OSSCancellationToken::remove(int id) {
    std::lock_guard lock(mutex_);
    actions_.erase(id);
}

}  // namespace quorvane::oss
