#include "platform/associated_objects.h"

#include <map>
#include <mutex>
#include <vector>

namespace quorvane::platform {
namespace {

using Entries = std::map<const void*, std::shared_ptr<void>>;

struct Table {
    std::mutex mutex;
    std::map<const AssociatedObjects*, Entries> owners;
};

Table& table() {
    static Table* instance = new Table;  // never destroyed: owners may die during static destruction
    return *instance;
}

// Removed values are released after the lock, so their destructors may use the table.
Entries takeAll(const AssociatedObjects& owner) {
    Entries gone;
    std::lock_guard lock(table().mutex);
    if (auto it = table().owners.find(&owner); it != table().owners.end()) {
        gone.swap(it->second);
        table().owners.erase(it);
    }
    return gone;
}

}  // namespace

AssociatedObjects::~AssociatedObjects() { takeAll(*this); }

void setAssociatedObject(const AssociatedObjects& owner, const void* key, std::shared_ptr<void> value) {
    std::shared_ptr<void> previous;
    std::lock_guard lock(table().mutex);
    auto& entries = table().owners[&owner];
    if (auto it = entries.find(key); it != entries.end()) previous = std::move(it->second);
    if (value) entries[key] = std::move(value);
    else entries.erase(key);
    if (entries.empty()) table().owners.erase(&owner);
}

std::shared_ptr<void> associatedObject(const AssociatedObjects& owner, const void* key) {
    std::lock_guard lock(table().mutex);
    auto it = table().owners.find(&owner);
    if (it == table().owners.end()) return nullptr;
    auto entry = it->second.find(key);
    return entry == it->second.end() ? nullptr : entry->second;
}

void removeAssociatedObjects(const AssociatedObjects& owner) { takeAll(owner); }

std::size_t associatedObjectCount() {
    std::lock_guard lock(table().mutex);
    std::size_t count = 0;
    for (auto& [owner, entries] : table().owners) count += entries.size();
    return count;
}

}  // namespace quorvane::platform
