#pragma once
// The resume cache: ties a file's identity to the storage object and video id of its upload, so an
// interrupted upload continues into the same object after a restart. Persisted in user defaults.
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/user_defaults.h"
#include "foundation/value.h"

namespace quorvane {

// Records have no equality: the cache tells them apart by instance.
struct VODObject {
    std::string key;
    std::string object;
    std::string videoId;

    VODObject() = default;
    // initWithDict: a missing or non-text entry gives "".
    explicit VODObject(const Value& dict);
    Value toDict() const;
};

class VODObjectCache {
public:
    static constexpr std::size_t kMaxObjects = 50;
    static constexpr const char* kDefaultsKey = "ALIYUN_VOD_OBJECT_CACHE2";

    // The process-wide cache on the standard user-defaults store, made on first use.
    static VODObjectCache& sharedCache();
    // A cache on its own store (the shared one, or a test's); loads the stored list.
    explicit VODObjectCache(foundation::UserDefaults& store);
    // A cache that keeps its store alive: a host's own, handed to its clients in VODServiceConfig.
    explicit VODObjectCache(std::shared_ptr<foundation::UserDefaults> store);
    VODObjectCache(const VODObjectCache&) = delete;
    VODObjectCache& operator=(const VODObjectCache&) = delete;

    // Appends the record under the path's identity unless this instance is already listed; keeps the
    // newest 50. Does nothing while disabled.
    void saveObject(const std::shared_ptr<VODObject>& object, const std::string& path);
    // The oldest record of the path's identity, or a new unlisted one holding only the key;
    // nullptr while disabled.
    std::shared_ptr<VODObject> getObjectWithPath(const std::string& path);
    // Removes the oldest record of the path's identity and persists; works while disabled too.
    void clearObjectWithPath(const std::string& path);
    // The video id an earlier upload of the file got from the service; empty when none is remembered.
    std::string rememberedVideoId(const std::string& path);
    // Keeps `videoId` for the file unless one is remembered already.
    void rememberVideoId(const std::string& path, const std::string& videoId);
    // base64 of size + file name + creation date: independent of the directory and the content.
    static std::string uniqueIdWithFilePath(const std::string& path);

    // Write or read the whole list; the caller holds the lock when others may be using the cache.
    void save();
    void load();

    bool enabled() const { return enabled_.load(std::memory_order_relaxed); }
    void setEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }

    // A copy of the list, oldest first.
    std::vector<std::shared_ptr<VODObject>> objects() const;

private:
    std::shared_ptr<foundation::UserDefaults> ownedStore_;  // before store_, which may refer to it
    foundation::UserDefaults& store_;
    std::vector<std::shared_ptr<VODObject>> array_;
    mutable std::mutex lock_;
    std::atomic<bool> enabled_{true};
};

}  // namespace quorvane
