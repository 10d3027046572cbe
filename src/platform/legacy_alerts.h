#pragma once
// The legacy alert view and action sheet (UIAlertView, UIActionSheet): button indices as those
// interfaces number them, and a delegate told of taps. While shown, the screen holds them.
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/associated_objects.h"
#include "platform/presenter.h"

namespace quorvane::platform {

class AlertView;
class ActionSheet;

class AlertViewDelegate {
public:
    virtual ~AlertViewDelegate() = default;
    virtual void alertViewClickedButtonAtIndex(AlertView& alertView, long buttonIndex) = 0;
};

class ActionSheetDelegate {
public:
    virtual ~ActionSheetDelegate() = default;
    virtual void actionSheetClickedButtonAtIndex(ActionSheet& actionSheet, long buttonIndex) = 0;
    virtual void actionSheetCancel(ActionSheet&) {}
};

// Buttons: the cancel button (if titled) at 0, then the added ones.
class AlertView : public AssociatedObjects, public std::enable_shared_from_this<AlertView> {
public:
    AlertView(std::optional<std::string> title, std::optional<std::string> message,
              std::weak_ptr<AlertViewDelegate> delegate, std::optional<std::string> cancelButtonTitle);
    long addButtonWithTitle(const std::string& title);
    long numberOfButtons() const;
    long cancelButtonIndex() const;  // -1 without a cancel button
    std::optional<std::string> buttonTitleAtIndex(long index) const;
    std::optional<std::string> title() const { return title_; }
    std::optional<std::string> message() const { return message_; }
    void setDelegate(std::weak_ptr<AlertViewDelegate> delegate);
    void show();
    bool isVisible() const;
    // The user taps a button: the view leaves the screen, then the delegate hears of it. False when
    // not shown or no such button.
    bool tap(long buttonIndex);
    // Alert views on screen, oldest first.
    static std::vector<std::shared_ptr<AlertView>> visibleAlertViews();
private:
    std::optional<std::string> title_, message_;
    mutable std::mutex mutex_;
    std::weak_ptr<AlertViewDelegate> delegate_;
    std::vector<std::string> buttons_;
    bool hasCancel_ = false;
};

// Buttons: the destructive one (if titled), the others in order, then the cancel one (if titled).
class ActionSheet : public AssociatedObjects, public std::enable_shared_from_this<ActionSheet> {
public:
    ActionSheet(std::optional<std::string> title, std::weak_ptr<ActionSheetDelegate> delegate,
                std::optional<std::string> cancelButtonTitle, std::optional<std::string> destructiveButtonTitle,
                std::vector<std::string> otherButtonTitles);
    long numberOfButtons() const;
    long cancelButtonIndex() const;       // -1 without one
    long destructiveButtonIndex() const;  // -1 without one
    std::optional<std::string> buttonTitleAtIndex(long index) const;
    std::optional<std::string> title() const { return title_; }
    void setDelegate(std::weak_ptr<ActionSheetDelegate> delegate);
    void showInView(std::shared_ptr<Presenter> view);
    std::shared_ptr<Presenter> shownInView() const;
    bool isVisible() const;
    bool tap(long buttonIndex);
    // The system dismisses the sheet without a choice.
    void cancel();
    static std::vector<std::shared_ptr<ActionSheet>> visibleActionSheets();
private:
    std::shared_ptr<ActionSheetDelegate> delegate() const;
    std::optional<std::string> title_;
    mutable std::mutex mutex_;
    std::weak_ptr<ActionSheetDelegate> delegate_;
    std::vector<std::string> buttons_;
    long cancelIndex_ = -1, destructiveIndex_ = -1;
    std::weak_ptr<Presenter> view_;
};

}  // namespace quorvane::platform
