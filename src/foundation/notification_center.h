#pragma once
// The notification centre: named announcements with a dictionary, delivered synchronously on the
// posting thread to every observer of that name.
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/value.h"

namespace quorvane::foundation {

class NotificationCenter {
public:
    using Observer = std::function<void(const std::string& name, const Value& userInfo)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    Token addObserver(const std::string& name, Observer observer);
    void removeObserver(Token token);
    void post(const std::string& name, const Value& userInfo = Value::object());

private:
    struct Entry {
        Token token;
        std::string name;
        std::function<void(const std::string&, const Value&)> observer;
    };
    std::mutex mutex_;
    std::vector<Entry> entries_;
    Token next_ = 1;
};

}  // namespace quorvane::foundation
