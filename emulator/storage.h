#pragma once
// Objects, multipart uploads and their parts, in memory or in a directory that survives restarts.
// Bodies are streamed into a BlobWriter and only become visible when committed whole, so a failed or
// cut request never corrupts what is stored.
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"
#include "foundation/crypto.h"

namespace quorvane::emulator {

struct Blob {
    std::shared_ptr<const std::string> memory;  // in-memory mode
    std::string path;                           // directory mode
    std::uint64_t size = 0;
    std::optional<std::string> readAll() const;
};

class BlobWriter {
public:
    BlobWriter(std::string tempPath, std::uint64_t reserve);  // empty path = memory
    ~BlobWriter();
    BlobWriter(const BlobWriter&) = delete;
    BlobWriter& operator=(const BlobWriter&) = delete;
    bool write(const char* data, std::size_t size);
    bool append(const Blob& blob);  // copies a stored blob in chunks
    std::uint64_t size() const { return size_; }
    std::uint64_t crc() const { return crc_; }
    std::string md5Raw();  // once, when the body is whole
    bool ok() const { return !failed_; }
    void skipDigests() { digests_ = false; }  // for bodies whose digests are already known
    Blob commit(const std::string& finalPath);  // finalPath ignored in memory mode

private:
    foundation::Md5Stream md5_;
    std::optional<std::string> digest_;
    std::uint64_t crc_ = 0;
    std::uint64_t size_ = 0;
    std::string temp_;
    std::FILE* file_ = nullptr;
    std::string buffer_;
    bool failed_ = false;
    bool committed_ = false;
    bool digests_ = true;
    bool copyInKernel(const Blob& blob);
};

struct StoredUpload {
    UploadInfo info;
    std::map<std::string, std::string> metadata;  // x-oss-meta-* given at initiation
    std::map<int, Blob> blobs;
};

class Storage {
public:
    explicit Storage(std::string dir);
    bool open();  // creates the directory layout and loads what a previous run stored
    bool persistent() const { return !dir_.empty(); }
    std::unique_ptr<BlobWriter> writer(std::uint64_t reserve);
    void clear();

    bool hasBucket(const std::string& bucket) const;
    void createBucket(const std::string& bucket);

    void storeObject(ObjectInfo info, BlobWriter& body);
    std::optional<std::pair<ObjectInfo, Blob>> object(const std::string& bucket, const std::string& key) const;
    std::vector<ObjectInfo> objects() const;

    std::string createUpload(const std::string& bucket, const std::string& key, const std::string& contentType,
                             const std::map<std::string, std::string>& metadata);
    std::optional<StoredUpload> upload(const std::string& uploadId) const;
    bool storePart(const std::string& uploadId, PartInfo part, BlobWriter& body);  // false unless open
    // Commits the assembled object and closes the upload in one step; false when no longer open.
    bool completeUpload(const std::string& uploadId, ObjectInfo info, BlobWriter& body);
    bool abortUpload(const std::string& uploadId);
    std::vector<UploadInfo> uploads() const;

private:
    struct StoredObject {
        ObjectInfo info;
        Blob blob;
    };
    std::string objectPath(const std::string& bucket, const std::string& key) const;
    std::string uploadDir(const std::string& uploadId) const;
    void saveObjectMeta(const StoredObject& object) const;
    void saveUploadMeta(const StoredUpload& upload) const;
    void closeUpload(StoredUpload& upload, UploadState state);
    void loadObjects();
    void loadUploads();
    void commitObjectLocked(ObjectInfo info, BlobWriter& body);

    std::string dir_;
    mutable std::mutex mutex_;
    std::set<std::string> buckets_;
    std::map<std::pair<std::string, std::string>, StoredObject> objects_;
    std::map<std::string, StoredUpload> uploads_;
    std::uint64_t tempCounter_ = 0;
};

}  // namespace quorvane::emulator
