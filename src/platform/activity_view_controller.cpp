#include "platform/activity_view_controller.h"

#include <algorithm>

namespace quorvane::platform {

ActivityViewController::ActivityViewController(std::vector<ActivityItem> activityItems)
    : items_(std::move(activityItems)) {}

void ActivityViewController::setExcludedActivityTypes(std::vector<std::string> types) {
    std::lock_guard lock(mutex_);
    excluded_ = std::move(types);
}

std::vector<std::string> ActivityViewController::excludedActivityTypes() const {
    std::lock_guard lock(mutex_);
    return excluded_;
}

void ActivityViewController::setCompletionWithItemsHandler(CompletionWithItemsHandler handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

bool ActivityViewController::finish(const std::optional<std::string>& activityType, bool completed) {
    CompletionWithItemsHandler handler;
    {
        std::lock_guard lock(mutex_);
        if (activityType && std::find(excluded_.begin(), excluded_.end(), *activityType) != excluded_.end())
            return false;
        handler = handler_;
    }
    auto keep = shared_from_this();
    if (auto presenter = presentingController()) presenter->dismiss(true, nullptr);
    if (handler) handler(activityType, completed);
    return true;
}

}  // namespace quorvane::platform
