#pragma once
// Values attached to a platform object from outside its class (objc_setAssociatedObject): a
// side table keyed by the owning object, whose entries go when the owner is destroyed.
#include <cstddef>
#include <memory>
#include <utility>

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

// A callback kept as an associated value (copied in); an empty one removes it.
template <class Block>
Block associatedBlock(const AssociatedObjects& owner, const void* key) {
    auto stored = std::static_pointer_cast<Block>(associatedObject(owner, key));
    return stored ? *stored : Block();
}

template <class Block>
void setAssociatedBlock(const AssociatedObjects& owner, const void* key, Block block) {
    setAssociatedObject(owner, key, block ? std::make_shared<Block>(std::move(block)) : nullptr);
}

}  // namespace quorvane::platform
