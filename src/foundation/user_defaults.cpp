#include "foundation/user_defaults.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "foundation/log.h"
#include "foundation/temp_files.h"

namespace quorvane::foundation {
namespace {

// Unless the host chose one (host_paths.h): the account's home from the user database, since the
// library reads no environment variable.
std::string standardPath() {
    const passwd* account = ::getpwuid(::getuid());
    const std::string home = account && account->pw_dir && *account->pw_dir ? account->pw_dir : "/tmp";
    return home + "/.config/quorvane/user-defaults.json";
}

// The stored object, or an empty one when the file is missing or not a JSON object.
Value load(const std::string& path) {
    auto text = readFile(path);
    if (!text) return Value::object();
    auto parsed = parseJson(*text);
    if (parsed && parsed->is_object()) return std::move(*parsed);
    logLine("UserDefaults: discarding unreadable store " + path);
    return Value::object();
}

}  // namespace

UserDefaults::UserDefaults(std::string filePath) : path_(std::move(filePath)), data_(load(path_)) {}

UserDefaults& UserDefaults::standard() {
    static auto* defaults = new UserDefaults(standardPath());  // never destroyed: used until exit
    return *defaults;
}

void UserDefaults::setStandardPath(const std::string& filePath) {
    UserDefaults& d = standard();
    std::lock_guard lock(d.mutex_);
    d.path_ = filePath;
    d.data_ = load(filePath);
}

std::optional<Value> UserDefaults::get(const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto it = data_.find(key);
    if (it == data_.end()) return std::nullopt;
    return *it;
}

void UserDefaults::set(const std::string& key, const Value& value) {
    std::lock_guard lock(mutex_);
    // Setting what is there already changes nothing to write: the upload engine's resume cache is
    // stored again at every file's end, most often unchanged (a file put in one request has no record).
    if (auto it = data_.find(key); it != data_.end() && *it == value) return;
    data_[key] = value;
    persistLocked();
}

void UserDefaults::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (data_.erase(key) == 0) return;
    persistLocked();
}

void UserDefaults::reload() {
    std::lock_guard lock(mutex_);
    data_ = load(path_);
}

const std::string& UserDefaults::path() const { return path_; }

void UserDefaults::persistLocked() {
    std::error_code ec;
    auto dir = std::filesystem::path(path_).parent_path();
    if (!dir.empty()) std::filesystem::create_directories(dir, ec);
    // Invalid UTF-8 in a string is replaced rather than thrown on.
    std::string text = data_.dump(-1, ' ', false, Value::error_handler_t::replace);
    // Not synced to disk: what this store holds is rebuilt by doing the work again (the upload engine's
    // resume cache: a lost entry costs sending a file again, never the file), and a sync per change
    // would put two disk flushes in every upload's path. The platform's own store is not synced per
    // change either.
    if (!writeFileAtomically(path_, text, Durability::ProcessCrash)) logLine("UserDefaults: cannot write " + path_);
}

}  // namespace quorvane::foundation
