#pragma once
// The persisted user-defaults store: a JSON object in one file, written atomically (temp file,
// rename) on every change, not synced to disk. A corrupt or unreadable file is discarded, not fatal.
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/value.h"

namespace quorvane::foundation {

class UserDefaults {
public:
    explicit UserDefaults(std::string filePath);

    // The process-wide store. Its file is the one the host set, else
    // ~/.config/quorvane/user-defaults.json of the account.
    static UserDefaults& standard();
    // Points the process-wide store at another file (tests, the command-line host).
    static void setStandardPath(const std::string& filePath);

    std::optional<Value> get(const std::string& key) const;
    void set(const std::string& key, const Value& value);  // persists at once
    void remove(const std::string& key);
    // Re-reads the file (as a new process would).
    void reload();
    const std::string& path() const;

private:
    void persistLocked();
    mutable std::mutex mutex_;
    std::string path_;
    Value data_ = Value::object();
};

}  // namespace quorvane::foundation
