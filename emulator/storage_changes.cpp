// Storage: listing a bucket, and changes to stored objects other than uploads (delete, copy, attributes).
#include <filesystem>

#include "emulator/storage.h"
#include "emulator/util.h"

namespace fs = std::filesystem;

namespace quorvane::emulator {

std::vector<std::string> Storage::buckets() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& [name, _] : buckets_) out.push_back(name);
    return out;
}

std::optional<std::string> Storage::bucketCreated(const std::string& bucket) const {
    std::lock_guard lock(mutex_);
    auto it = buckets_.find(bucket);
    if (it == buckets_.end()) return std::nullopt;
    return it->second;
}

std::vector<ObjectInfo> Storage::objectsAfter(const std::string& bucket, const std::string& prefix,
                                              const std::string& after, std::size_t limit) const {
    std::lock_guard lock(mutex_);
    std::vector<ObjectInfo> out;
    auto it = after < prefix ? objects_.lower_bound({bucket, prefix}) : objects_.upper_bound({bucket, after});
    for (; it != objects_.end() && out.size() < limit; ++it) {
        const auto& [bucketName, key] = it->first;
        if (bucketName != bucket || !startsWith(key, prefix)) break;
        out.push_back(it->second.info);
    }
    return out;
}

Stored Storage::deleteObject(const std::string& bucket, const std::string& key) {
    std::lock_guard lock(mutex_);
    auto it = objects_.find({bucket, key});
    if (it == objects_.end()) return Stored::Ok;
    std::error_code ec;
    if (!dir_.empty()) {
        // The record goes first: a stop in between leaves data files without a record, never the reverse.
        fs::remove(objectPath(bucket, key) + ".json", ec);
        if (ec) return Stored::Failed;
        for (const auto& piece : it->second.blob.pieces)
            if (!piece.path.empty()) fs::remove(piece.path, ec);
    }
    objects_.erase(it);
    return Stored::Ok;
}

Stored Storage::copyObject(const std::string& srcBucket, const std::string& srcKey, ObjectInfo info) {
    std::lock_guard lock(mutex_);
    auto source = objects_.find({srcBucket, srcKey});
    if (source == objects_.end()) return Stored::NotOpen;
    StoredObject copy{std::move(info), {}};
    // Each piece file gets a name of the copy's own (a hard link where the file system has them), so
    // deleting or overwriting either object never touches the other's bytes.
    auto base = dir_.empty() ? std::string()
                             : objectPath(copy.info.bucket, copy.info.key) + "." + randomHex(12, false) + "-";
    auto undo = [&] {
        std::error_code ec;
        for (const auto& p : copy.blob.pieces)
            if (!p.path.empty()) fs::remove(p.path, ec);
        return Stored::Failed;
    };
    for (auto piece : source->second.blob.pieces) {
        if (!piece.memory) {
            auto name = base + std::to_string(copy.blob.pieces.size()) + ".copy";
            std::error_code ec;
            fs::create_hard_link(piece.path, name, ec);
            if (ec) {
                ec.clear();
                fs::copy_file(piece.path, name, ec);
            }
            if (ec) return fs::remove(name, ec), undo();
            piece.path = name;
        }
        copy.blob.add(std::move(piece));
    }
    if (!putObjectLocked(copy)) return undo();
    return Stored::Ok;
}

Stored Storage::updateObject(const std::string& bucket, const std::string& key,
                             const std::function<void(ObjectInfo&)>& change) {
    std::lock_guard lock(mutex_);
    auto it = objects_.find({bucket, key});
    if (it == objects_.end()) return Stored::NotOpen;
    auto changed = it->second;
    change(changed.info);
    if (!saveObjectMeta(changed)) return Stored::Failed;
    it->second = std::move(changed);
    return Stored::Ok;
}

}  // namespace quorvane::emulator
