#include "platform/legacy_alerts.h"

#include <algorithm>

namespace quorvane::platform {
namespace {

// What the screen holds while shown.
template <class T>
struct Shown {
    std::mutex mutex;
    std::vector<std::shared_ptr<T>> items;

    void add(std::shared_ptr<T> item) {
        std::lock_guard lock(mutex);
        items.push_back(std::move(item));
    }
    bool contains(const T* item) {
        std::lock_guard lock(mutex);
        return std::any_of(items.begin(), items.end(), [&](const auto& i) { return i.get() == item; });
    }
    // The removed entry is handed back so the caller releases it outside the lock.
    std::shared_ptr<T> remove(const T* item) {
        std::lock_guard lock(mutex);
        auto it = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.get() == item; });
        if (it == items.end()) return nullptr;
        auto gone = std::move(*it);
        items.erase(it);
        return gone;
    }
    std::vector<std::shared_ptr<T>> all() {
        std::lock_guard lock(mutex);
        return items;
    }
};

Shown<AlertView>& shownAlertViews() {
    static Shown<AlertView> shown;
    return shown;
}

Shown<ActionSheet>& shownActionSheets() {
    static Shown<ActionSheet> shown;
    return shown;
}

std::optional<std::string> titleAt(const std::vector<std::string>& buttons, long index) {
    if (index < 0 || index >= static_cast<long>(buttons.size())) return std::nullopt;
    return buttons[static_cast<std::size_t>(index)];
}

}  // namespace

AlertView::AlertView(std::optional<std::string> title, std::optional<std::string> message,
                     std::weak_ptr<AlertViewDelegate> delegate, std::optional<std::string> cancelButtonTitle)
    : title_(std::move(title)), message_(std::move(message)), delegate_(std::move(delegate)) {
    if (cancelButtonTitle) {
        buttons_.push_back(*cancelButtonTitle);
        hasCancel_ = true;
    }
}

long AlertView::addButtonWithTitle(const std::string& title) {
    std::lock_guard lock(mutex_);
    buttons_.push_back(title);
    return static_cast<long>(buttons_.size()) - 1;
}

long AlertView::numberOfButtons() const { std::lock_guard lock(mutex_); return static_cast<long>(buttons_.size()); }
long AlertView::cancelButtonIndex() const { return hasCancel_ ? 0 : -1; }
std::optional<std::string> AlertView::buttonTitleAtIndex(long index) const {
    std::lock_guard lock(mutex_);
    return titleAt(buttons_, index);
}
void AlertView::setDelegate(std::weak_ptr<AlertViewDelegate> delegate) { std::lock_guard lock(mutex_); delegate_ = std::move(delegate); }
void AlertView::show() { if (!isVisible()) shownAlertViews().add(shared_from_this()); }
bool AlertView::isVisible() const { return shownAlertViews().contains(this); }
std::vector<std::shared_ptr<AlertView>> AlertView::visibleAlertViews() { return shownAlertViews().all(); }

bool AlertView::tap(long buttonIndex) {
    if (!buttonTitleAtIndex(buttonIndex)) return false;
    auto keep = shownAlertViews().remove(this);  // alive until the delegate has answered
    if (!keep) return false;
    std::shared_ptr<AlertViewDelegate> delegate;
    {
        std::lock_guard lock(mutex_);
        delegate = delegate_.lock();
    }
    if (delegate) delegate->alertViewClickedButtonAtIndex(*this, buttonIndex);
    return true;
}

ActionSheet::ActionSheet(std::optional<std::string> title, std::weak_ptr<ActionSheetDelegate> delegate,
                         std::optional<std::string> cancelButtonTitle, std::optional<std::string> destructiveButtonTitle,
                         std::vector<std::string> otherButtonTitles)
    : title_(std::move(title)), delegate_(std::move(delegate)) {
    if (destructiveButtonTitle) {
        destructiveIndex_ = 0;
        buttons_.push_back(*destructiveButtonTitle);
    }
    for (auto& other : otherButtonTitles) buttons_.push_back(std::move(other));
    if (cancelButtonTitle) {
        cancelIndex_ = static_cast<long>(buttons_.size());
        buttons_.push_back(*cancelButtonTitle);
    }
}

long ActionSheet::numberOfButtons() const { std::lock_guard lock(mutex_); return static_cast<long>(buttons_.size()); }
long ActionSheet::cancelButtonIndex() const { return cancelIndex_; }
long ActionSheet::destructiveButtonIndex() const { return destructiveIndex_; }
std::optional<std::string> ActionSheet::buttonTitleAtIndex(long index) const {
    std::lock_guard lock(mutex_);
    return titleAt(buttons_, index);
}
void ActionSheet::setDelegate(std::weak_ptr<ActionSheetDelegate> delegate) { std::lock_guard lock(mutex_); delegate_ = std::move(delegate); }
std::shared_ptr<ActionSheetDelegate> ActionSheet::delegate() const { std::lock_guard lock(mutex_); return delegate_.lock(); }
std::shared_ptr<Presenter> ActionSheet::shownInView() const { std::lock_guard lock(mutex_); return view_.lock(); }
bool ActionSheet::isVisible() const { return shownActionSheets().contains(this); }
std::vector<std::shared_ptr<ActionSheet>> ActionSheet::visibleActionSheets() { return shownActionSheets().all(); }

void ActionSheet::showInView(std::shared_ptr<Presenter> view) {
    {
        std::lock_guard lock(mutex_);
        view_ = view;
    }
    if (!isVisible()) shownActionSheets().add(shared_from_this());
}

bool ActionSheet::tap(long buttonIndex) {
    if (!buttonTitleAtIndex(buttonIndex)) return false;
    auto keep = shownActionSheets().remove(this);
    if (!keep) return false;
    if (auto d = delegate()) d->actionSheetClickedButtonAtIndex(*this, buttonIndex);
    return true;
}

void ActionSheet::cancel() {
    auto keep = shownActionSheets().remove(this);
    if (!keep) return;
    if (auto d = delegate()) d->actionSheetCancel(*this);
}

}  // namespace quorvane::platform
