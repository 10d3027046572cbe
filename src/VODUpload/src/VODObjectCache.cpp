#include "VODUpload/src/VODObjectCache.h"

#include <algorithm>

#include "VODUpload/src/VODDateFormat.h"
#include "VODUpload/src/VODInnerFileInfo.h"
#include "foundation/crypto.h"

namespace quorvane {

VODObject::VODObject(const Value& dict)
    : key(foundation::stringAt(dict, "key").value_or("")),
      object(foundation::stringAt(dict, "object").value_or("")),
      videoId(foundation::stringAt(dict, "videoId").value_or("")) {}

Value VODObject::toDict() const {
    Value d = Value::object();
    d["key"] = key;
    d["object"] = object;
    d["videoId"] = videoId;
    return d;
}

VODObjectCache& VODObjectCache::sharedCache() {
    static VODObjectCache cache(foundation::UserDefaults::standard());
    return cache;
}

VODObjectCache::VODObjectCache(foundation::UserDefaults& store) : store_(store) { load(); }

VODObjectCache::VODObjectCache(std::shared_ptr<foundation::UserDefaults> store)
    : ownedStore_(std::move(store)), store_(*ownedStore_) {
    load();
}

std::string VODObjectCache::uniqueIdWithFilePath(const std::string& path) {
    auto attrs = vodFileAttributes(path);
    long long size = attrs ? attrs->size : 0;
    std::string date = (attrs && attrs->creationDate) ? vodDateDescription(*attrs->creationDate) : "";
    return foundation::base64Encode(std::to_string(size) + vodLastPathComponent(path) + date);
}

void VODObjectCache::saveObject(const std::shared_ptr<VODObject>& object, const std::string& path) {
    if (!object || !enabled() || path.empty()) return;
    object->key = uniqueIdWithFilePath(path);
    std::lock_guard guard(lock_);
    if (std::find(array_.begin(), array_.end(), object) == array_.end()) array_.push_back(object);
    if (array_.size() > kMaxObjects) array_.erase(array_.begin(), array_.end() - kMaxObjects);
    save();
}

std::shared_ptr<VODObject> VODObjectCache::getObjectWithPath(const std::string& path) {
    if (!enabled() || path.empty()) return nullptr;
    std::string key = uniqueIdWithFilePath(path);
    {
        std::lock_guard guard(lock_);
        for (const auto& o : array_)
            if (o->key == key) return o;
    }
    auto fresh = std::make_shared<VODObject>();
    fresh->key = std::move(key);
    return fresh;
}

std::string VODObjectCache::rememberedVideoId(const std::string& path) {
    auto record = getObjectWithPath(path);
    return record ? record->videoId : std::string();
}

void VODObjectCache::rememberVideoId(const std::string& path, const std::string& videoId) {
    auto record = getObjectWithPath(path);
    if (!record || !record->videoId.empty()) return;
    record->videoId = videoId;
    saveObject(record, path);
}

void VODObjectCache::clearObjectWithPath(const std::string& path) {
    if (path.empty()) return;
    std::string key = uniqueIdWithFilePath(path);
    std::lock_guard guard(lock_);
    auto it = std::find_if(array_.begin(), array_.end(), [&](const auto& o) { return o->key == key; });
    if (it != array_.end()) array_.erase(it);
    save();
}

void VODObjectCache::save() {
    Value list = Value::array();
    for (const auto& o : array_) list.push_back(o->toDict());
    try {
        store_.set(kDefaultsKey, list);
    } catch (const std::exception&) {
        // A store that cannot be written loses the resume hints only; uploads go on.
    }
}

void VODObjectCache::load() {
    array_.clear();
    std::optional<Value> stored;
    try {
        stored = store_.get(kDefaultsKey);
    } catch (const std::exception&) {
        return;
    }
    // Anything but a list of maps is a damaged store: keep what can be read, drop the rest.
    if (!stored || !stored->is_array()) return;
    for (const auto& entry : *stored)
        if (entry.is_object()) array_.push_back(std::make_shared<VODObject>(entry));
}

std::vector<std::shared_ptr<VODObject>> VODObjectCache::objects() const {
    std::lock_guard guard(lock_);
    return array_;
}

}  // namespace quorvane
