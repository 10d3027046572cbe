#include "emulator/storage.h"

#include <algorithm>
#include <filesystem>

#include "emulator/storage_records.h"
#include "emulator/util.h"
#include "foundation/dates.h"

namespace fs = std::filesystem;

namespace quorvane::emulator {

Storage::Storage(std::string dir) : dir_(std::move(dir)) {}

bool Storage::open() {
    if (dir_.empty()) return true;
    std::error_code ec;
    for (const char* sub : {"buckets", "bucket-dates", "uploads", "tmp"}) fs::create_directories(fs::path(dir_) / sub, ec);
    if (ec) return false;
    fs::remove_all(fs::path(dir_) / "tmp", ec);  // bodies cut by a previous stop
    fs::create_directories(fs::path(dir_) / "tmp", ec);
    std::lock_guard lock(mutex_);
    loadObjects();
    loadUploads();
    return !ec;
}

std::unique_ptr<BlobWriter> Storage::writer(std::uint64_t reserve) {
    std::string temp;
    if (!dir_.empty()) {
        std::lock_guard lock(mutex_);
        temp = (fs::path(dir_) / "tmp" / (std::to_string(++tempCounter_) + "-" + randomHex(8, false))).string();
    }
    return std::make_unique<BlobWriter>(temp, reserve);
}

void Storage::clear() {
    std::lock_guard lock(mutex_);
    buckets_.clear();
    objects_.clear();
    uploads_.clear();
    if (dir_.empty()) return;
    std::error_code ec;
    for (const char* sub : {"buckets", "bucket-dates", "uploads"}) {
        fs::remove_all(fs::path(dir_) / sub, ec);
        fs::create_directories(fs::path(dir_) / sub, ec);
    }
}

bool Storage::hasBucket(const std::string& bucket) const {
    std::lock_guard lock(mutex_);
    return buckets_.count(bucket) > 0;
}

void Storage::createBucket(const std::string& bucket) {
    std::lock_guard lock(mutex_);
    auto [slot, made] = buckets_.emplace(bucket, ossTime(std::chrono::system_clock::now()));
    if (!dir_.empty() && made) {
        std::error_code ec;
        fs::create_directories(fs::path(dir_) / "buckets" / bucket, ec);
        // Apart from the bucket's directory, whose own time changes with its files.
        writeFileAtomically((fs::path(dir_) / "bucket-dates" / bucket).string(), slot->second);
    }
}

std::string Storage::objectPath(const std::string& bucket, const std::string& key) const {
    // Keys may hold any bytes: name the files by the key's digest and keep the key in the record.
    return (fs::path(dir_) / "buckets" / bucket / foundation::md5Hex(key)).string();
}

std::string Storage::uploadDir(const std::string& uploadId) const {
    return (fs::path(dir_) / "uploads" / uploadId).string();
}

bool Storage::saveObjectMeta(const StoredObject& object) const {
    if (dir_.empty()) return true;
    auto json = objectToJson(object.info);
    // The record names its data files in order: one for a simple object, the parts' files as they are
    // for a completed multipart upload.
    json["pieces"] = Value::array();
    for (const auto& piece : object.blob.pieces) json["pieces"].push_back(fs::path(piece.path).filename().string());
    auto text = recordText(json);
    return text && writeFileAtomically(objectPath(object.info.bucket, object.info.key) + ".json", *text);
}

bool Storage::saveUploadMeta(const StoredUpload& upload) const {
    if (dir_.empty()) return true;
    auto text = recordText(uploadToJson(upload.info, upload.metadata));
    return text && writeFileAtomically(uploadDir(upload.info.uploadId) + "/upload.json", *text);
}

namespace {
void removeFiles(const Blob& blob) {
    std::error_code ec;
    for (const auto& piece : blob.pieces)
        if (!piece.path.empty()) fs::remove(piece.path, ec);
}
}  // namespace

// Stores the object's record over any previous one, then removes the files of the version it replaced
// that the new one does not use: a crash in between leaves a file too many, never a record without data.
// False, with nothing changed, when the record cannot be written.
bool Storage::putObjectLocked(StoredObject object) {
    if (!saveObjectMeta(object)) return false;
    buckets_.emplace(object.info.bucket, object.info.lastModified);
    auto& slot = objects_[{object.info.bucket, object.info.key}];
    std::error_code ec;
    for (const auto& old : slot.blob.pieces) {
        bool kept = std::any_of(object.blob.pieces.begin(), object.blob.pieces.end(),
                                [&](const Blob::Piece& p) { return p.path == old.path; });
        if (!old.path.empty() && !kept) fs::remove(old.path, ec);
    }
    slot = std::move(object);
    return true;
}

bool Storage::storeObject(ObjectInfo info, BlobWriter& body) {
    std::lock_guard lock(mutex_);
    StoredObject object{std::move(info), {}};
    // Each version gets its own data file, so the one it replaces stays whole until the new record is in.
    auto blob = body.commit(dir_.empty() ? ""
                                         : objectPath(object.info.bucket, object.info.key) + "." +
                                               randomHex(12, false) + ".data");
    if (!blob) return false;
    object.blob = std::move(*blob);
    auto written = object.blob;
    if (putObjectLocked(std::move(object))) return true;
    removeFiles(written);
    return false;
}

std::optional<std::pair<ObjectInfo, Blob>> Storage::object(const std::string& bucket, const std::string& key) const {
    std::lock_guard lock(mutex_);
    auto it = objects_.find({bucket, key});
    if (it == objects_.end()) return std::nullopt;
    return std::make_pair(it->second.info, it->second.blob);
}

std::vector<ObjectInfo> Storage::objects() const {
    std::lock_guard lock(mutex_);
    std::vector<ObjectInfo> out;
    for (const auto& [_, o] : objects_) out.push_back(o.info);
    return out;
}

std::optional<std::string> Storage::createUpload(const std::string& bucket, const std::string& key,
                                                 const std::string& contentType,
                                                 const std::map<std::string, std::string>& metadata,
                                                 const std::string& initiated) {
    StoredUpload upload;
    upload.info = {randomHex(32, true), bucket, key, contentType, UploadState::Open, {}, initiated};
    upload.metadata = metadata;
    std::lock_guard lock(mutex_);
    if (!dir_.empty()) {
        std::error_code ec;
        fs::create_directories(uploadDir(upload.info.uploadId), ec);
    }
    if (!saveUploadMeta(upload)) {
        std::error_code ec;
        fs::remove_all(uploadDir(upload.info.uploadId), ec);
        return std::nullopt;
    }
    auto id = upload.info.uploadId;
    uploads_[id] = std::move(upload);
    return id;
}

std::optional<StoredUpload> Storage::upload(const std::string& uploadId) const {
    std::lock_guard lock(mutex_);
    auto it = uploads_.find(uploadId);
    if (it == uploads_.end()) return std::nullopt;
    return it->second;
}

Stored Storage::storePart(const std::string& uploadId, PartInfo part, BlobWriter& body) {
    std::lock_guard lock(mutex_);
    auto it = uploads_.find(uploadId);
    if (it == uploads_.end() || it->second.info.state != UploadState::Open) return Stored::NotOpen;
    auto& upload = it->second;
    auto& parts = upload.info.parts;
    auto base = dir_.empty() ? std::string() : uploadDir(uploadId) + "/part-" + std::to_string(part.number);
    auto blob = body.commit(base.empty() ? "" : base + ".data");
    auto record = recordText(partToJson(part));
    if (!blob || !record || (!base.empty() && !writeFileAtomically(base + ".json", *record))) {
        // The part's files may be half replaced: the part is gone, and the client sends it again.
        std::error_code ec;
        if (!base.empty()) fs::remove(base + ".data", ec), fs::remove(base + ".json", ec);
        upload.blobs.erase(part.number);
        std::erase_if(parts, [&](const PartInfo& p) { return p.number == part.number; });
        return Stored::Failed;
    }
    upload.blobs[part.number] = std::move(*blob);
    std::erase_if(parts, [&](const PartInfo& p) { return p.number == part.number; });
    auto pos = std::lower_bound(parts.begin(), parts.end(), part.number,
                                [](const PartInfo& p, int n) { return p.number < n; });
    parts.insert(pos, std::move(part));
    return Stored::Ok;
}

void Storage::closeUpload(StoredUpload& upload, UploadState state) {
    upload.info.state = state;
    upload.blobs.clear();
    saveUploadMeta(upload);
    if (dir_.empty()) return;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(uploadDir(upload.info.uploadId), ec))
        if (entry.path().filename() != "upload.json") fs::remove(entry.path(), ec);
}

// The part's file gets a second name beside the object's record (the upload's own name goes when the
// upload closes), so the object costs a directory entry per part whatever its size.
std::optional<Blob::Piece> Storage::linkPart(const Blob& part, const std::string& objectBase,
                                             const std::string& uploadId, int number) {
    auto piece = part.pieces.at(0);
    if (piece.memory) return piece;
    auto name = objectBase + "." + uploadId + "-" + std::to_string(number) + ".part";
    std::error_code ec;
    fs::remove(name, ec);
    fs::create_hard_link(piece.path, name, ec);
    if (ec) {
        ec.clear();
        fs::copy_file(piece.path, name, ec);  // a file system without hard links
    }
    if (ec) {
        fs::remove(name, ec);
        return std::nullopt;
    }
    piece.path = name;
    return piece;
}

Stored Storage::completeUpload(const std::string& uploadId, ObjectInfo info, const std::vector<int>& partNumbers) {
    std::lock_guard lock(mutex_);
    auto it = uploads_.find(uploadId);
    if (it == uploads_.end() || it->second.info.state != UploadState::Open) return Stored::NotOpen;
    StoredObject object{std::move(info), {}};
    auto base = dir_.empty() ? std::string() : objectPath(object.info.bucket, object.info.key);
    for (int number : partNumbers) {
        auto piece = linkPart(it->second.blobs.at(number), base, uploadId, number);
        if (!piece) return removeFiles(object.blob), Stored::Failed;
        object.blob.add(std::move(*piece));
    }
    auto linked = object.blob;
    if (!putObjectLocked(std::move(object))) return removeFiles(linked), Stored::Failed;
    closeUpload(it->second, UploadState::Completed);
    return Stored::Ok;
}

bool Storage::abortUpload(const std::string& uploadId) {
    std::lock_guard lock(mutex_);
    auto it = uploads_.find(uploadId);
    if (it == uploads_.end() || it->second.info.state != UploadState::Open) return false;
    closeUpload(it->second, UploadState::Aborted);
    return true;
}

std::vector<UploadInfo> Storage::uploads() const {
    std::lock_guard lock(mutex_);
    std::vector<UploadInfo> out;
    for (const auto& [_, u] : uploads_) out.push_back(u.info);
    return out;
}

void Storage::loadObjects() {
    std::error_code ec;
    for (const auto& bucketDir : fs::directory_iterator(fs::path(dir_) / "buckets", ec)) {
        if (!bucketDir.is_directory()) continue;
        auto name = bucketDir.path().filename().string();
        auto created = readTextFile((fs::path(dir_) / "bucket-dates" / name).string());
        buckets_.emplace(name, created ? *created : ossTime(std::chrono::system_clock::now()));
        for (const auto& file : fs::directory_iterator(bucketDir.path(), ec)) {
            if (file.path().extension() != ".json") continue;
            auto json = readJsonFile(file.path().string());
            auto data = fs::path(file.path()).replace_extension(".data");
            if (!json) continue;
            StoredObject object{objectFromJson(*json), {}};
            std::vector<fs::path> files{data};
            if (auto pieces = json->find("pieces"); pieces != json->end() && pieces->is_array()) {
                files.clear();
                for (const auto& name : *pieces)
                    files.push_back(bucketDir.path() / (name.is_string() ? name.get<std::string>() : ""));
            }
            bool missing = false;
            for (const auto& path : files) {
                std::error_code sizeError;
                auto size = fs::file_size(path, sizeError);
                missing = missing || sizeError;
                object.blob.add({nullptr, path.string(), sizeError ? 0 : size});
            }
            if (missing || object.blob.size != object.info.size) continue;
            objects_[{object.info.bucket, object.info.key}] = std::move(object);
        }
    }
}

void Storage::loadUploads() {
    std::error_code ec;
    for (const auto& dir : fs::directory_iterator(fs::path(dir_) / "uploads", ec)) {
        auto json = readJsonFile((dir.path() / "upload.json").string());
        if (!json) continue;
        StoredUpload upload;
        upload.info = uploadFromJson(*json, upload.metadata);
        if (upload.info.state == UploadState::Open) {
            for (const auto& file : fs::directory_iterator(dir.path(), ec)) {
                auto name = file.path().filename().string();
                if (!startsWith(name, "part-") || file.path().extension() != ".json") continue;
                auto partJson = readJsonFile(file.path().string());
                auto data = fs::path(file.path()).replace_extension(".data");
                if (!partJson || !fs::exists(data)) continue;
                auto part = partFromJson(*partJson);
                upload.blobs[part.number].add({nullptr, data.string(), part.size});
                upload.info.parts.push_back(part);
            }
            std::sort(upload.info.parts.begin(), upload.info.parts.end(),
                      [](const PartInfo& a, const PartInfo& b) { return a.number < b.number; });
        }
        uploads_[upload.info.uploadId] = std::move(upload);
    }
}

}  // namespace quorvane::emulator
