#pragma once
// The system share sheet (UIActivityViewController): the items to share, the activity types left
// out, and the handler that runs when the user picks an activity or dismisses the sheet.
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/image.h"
#include "platform/presenter.h"

namespace quorvane::platform {

inline constexpr const char* UIActivityTypePrint = "com.apple.UIKit.activity.Print";
inline constexpr const char* UIActivityTypeCopyToPasteboard = "com.apple.UIKit.activity.CopyToPasteboard";
inline constexpr const char* UIActivityTypeAssignToContact = "com.apple.UIKit.activity.AssignToContact";
inline constexpr const char* UIActivityTypeSaveToCameraRoll = "com.apple.UIKit.activity.SaveToCameraRoll";

struct ActivityItem {
    enum class Kind { Text, Image, URL };
    Kind kind = Kind::Text;
    std::string text;  // the text, or the URL's string
    ImagePtr image;
};

class ActivityViewController : public ViewController, public std::enable_shared_from_this<ActivityViewController> {
public:
    // (activity type or absent when dismissed, completed)
    using CompletionWithItemsHandler = std::function<void(const std::optional<std::string>& activityType, bool completed)>;

    explicit ActivityViewController(std::vector<ActivityItem> activityItems);
    const std::vector<ActivityItem>& activityItems() const { return items_; }
    void setExcludedActivityTypes(std::vector<std::string> types);
    std::vector<std::string> excludedActivityTypes() const;
    void setCompletionWithItemsHandler(CompletionWithItemsHandler handler);

    // The user ends the sheet: it is dismissed, then the handler runs. An excluded activity type
    // cannot be chosen (false, nothing happens).
    bool finish(const std::optional<std::string>& activityType, bool completed);

private:
    std::vector<ActivityItem> items_;
    mutable std::mutex mutex_;
    std::vector<std::string> excluded_;
    CompletionWithItemsHandler handler_;
};

}  // namespace quorvane::platform
