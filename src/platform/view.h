#pragma once
// A minimal view tree (UIView, UILabel, UIButton, UIWindow) so overlays can be put on screen and
// read back: frames, colours, texts, subviews, and the application's key window. Views are touched
// on the main thread; the mutex only keeps a reader on another thread from seeing a torn value.
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/associated_objects.h"

namespace quorvane::platform {

struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
};

struct Color {
    double red = 0, green = 0, blue = 0, alpha = 0;
};

class View : public std::enable_shared_from_this<View> {
public:
    virtual ~View() = default;
    Rect frame() const;
    void setFrame(Rect frame);
    Color backgroundColor() const;
    void setBackgroundColor(Color color);
    // Moves `view` here (from its previous superview, if any), on top of the others.
    void addSubview(const std::shared_ptr<View>& view);
    void removeFromSuperview();
    std::shared_ptr<View> superview() const;
    std::vector<std::shared_ptr<View>> subviews() const;

protected:
    mutable std::mutex mutex_;

private:
    void detach(const View* child);
    Rect frame_;
    Color backgroundColor_;
    std::weak_ptr<View> superview_;
    std::vector<std::shared_ptr<View>> subviews_;
};

class Label : public View {
public:
    std::string text() const;
    void setText(std::string text);
private:
    std::string text_;
};

// Control events of a button (UIControlEvents bits).
inline constexpr unsigned long UIControlEventTouchDown = 1UL << 0;
inline constexpr unsigned long UIControlEventTouchUpInside = 1UL << 6;

class Button : public View, public AssociatedObjects {
public:
    using Action = std::function<void(Button& sender)>;
    std::string title() const;
    void setTitle(std::string title);
    // Registers `action` of `target` for the events in `controlEvents`. A target registers one action: a
    // second registration by the same target replaces the action and adds the events, as target-action
    // pairs are not repeated.
    void addTarget(const void* target, Action action, unsigned long controlEvents);
    // Runs, in registration order, every action registered for one of `controlEvents`.
    void sendActionsForControlEvents(unsigned long controlEvents);
    // Replaces all targets by one touch-up-inside action.
    void setAction(Action action);
    // A tap: touch down, then touch up inside.
    void tap();
private:
    struct Target {
        const void* target;
        Action action;
        unsigned long controlEvents;
    };
    std::string title_;
    std::vector<Target> targets_;
};

class Window : public View {
public:
    // The application's key window (one per process, created on first use).
    static std::shared_ptr<Window> keyWindow();
    static void setKeyWindow(std::shared_ptr<Window> window);
};

}  // namespace quorvane::platform
