#pragma once
// Values attached to a platform object from outside its class (objc_setAssociatedObject): a
// side table keyed by the owning object, whose entries go when the owner is destroyed.
#include <cstddef>
#include <memory>

namespace quorvane::platform {

// Base of the platform objects that can carry associated values.
class AssociatedObjects {
public:
    AssociatedObjects() = default;
    AssociatedObjects(const AssociatedObjects&) {}  // a copy starts with nothing attached
    AssociatedObjects& operator=(const AssociatedObjects&) { return *this; }
    virtual ~AssociatedObjects();
};

// Attaches `value` to `owner` under `key` (an address unique to the caller); null removes it.
void setAssociatedObject(const AssociatedObjects& owner, const void* key, std::shared_ptr<void> value);
std::shared_ptr<void> associatedObject(const AssociatedObjects& owner, const void* key);
// Drops every value attached to `owner`.
void removeAssociatedObjects(const AssociatedObjects& owner);
// How many values are attached, over all owners.
std::size_t associatedObjectCount();

}  // namespace quorvane::platform
