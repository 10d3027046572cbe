#include "foundation/notification_center.h"

#include <algorithm>

#include "foundation/log.h"

namespace quorvane::foundation {

NotificationCenter& NotificationCenter::defaultCenter() {
    static auto* center = new NotificationCenter();  // never destroyed: posts may come at exit
    return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const std::string& name, Observer observer) {
    std::lock_guard lock(mutex_);
    Token token = next_++;
    entries_.push_back(Entry{token, name, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard lock(mutex_);
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.token == token; }),
                   entries_.end());
}

void NotificationCenter::post(const std::string& name, const Value& userInfo) {
    // Called outside the lock, on copies: an observer may add or remove observers, itself included.
    std::vector<Entry> targets;
    {
        std::lock_guard lock(mutex_);
        for (const Entry& e : entries_)
            if (e.name == name) targets.push_back(e);
    }
    for (const Entry& e : targets) {
        {
            std::lock_guard lock(mutex_);  // removed by an earlier observer of this same post: skip
            if (std::none_of(entries_.begin(), entries_.end(), [&](const Entry& x) { return x.token == e.token; }))
                continue;
        }
        try {
            e.observer(name, userInfo);
        } catch (...) {
            logLine("NotificationCenter: an observer of " + name + " threw");
        }
    }
}

}  // namespace quorvane::foundation
