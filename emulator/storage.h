#pragma once
// Objects, multipart uploads and their parts, in memory or in a directory that survives restarts.
// Bodies are streamed into a BlobWriter and only become visible when committed whole, so a failed or
// cut request never corrupts what is stored.
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/cloud_emulator.h"
#include "foundation/crypto.h"

namespace quorvane::emulator {

// A stored body as a list of pieces: one for a PutObject or a part, one per part for a completed
// multipart upload, whose parts' buffers or files are taken over as they are and never copied.
struct Blob {
    struct Piece {
        std::shared_ptr<const std::string> memory;  // in-memory mode
        std::string path;                           // directory mode
        std::uint64_t size = 0;
    };
    std::vector<Piece> pieces;
    std::uint64_t size = 0;  // all pieces
    void add(Piece piece);
    std::optional<std::string> readAll() const;
};

// Random access to a blob for GET and ranged answers. Every piece file is opened at once, so an
// overwrite of the object while the answer is sent (which renames or removes them) cannot cut it.
class BlobReader {
public:
    explicit BlobReader(const Blob& blob);
    ~BlobReader();
    BlobReader(const BlobReader&) = delete;
    BlobReader& operator=(const BlobReader&) = delete;
    bool ok() const { return ok_; }
    // Up to `max` bytes from `offset` (within one piece); empty at the end or when a read fails.
    std::string_view read(std::uint64_t offset, std::size_t max);

private:
    Blob blob_;
    std::vector<std::uint64_t> starts_;  // offset of each piece
    std::vector<int> fds_;               // -1 for memory pieces
    std::vector<char> buffer_;
    bool ok_ = true;
};

class BlobWriter {
public:
    BlobWriter(std::string tempPath, std::uint64_t reserve);  // empty path = memory
    ~BlobWriter();
    BlobWriter(const BlobWriter&) = delete;
    BlobWriter& operator=(const BlobWriter&) = delete;
    bool write(const char* data, std::size_t size);
    std::uint64_t size() const { return size_; }
    std::uint64_t crc() const { return crc_; }
    std::string md5Raw();  // once, when the body is whole
    bool ok() const { return !failed_; }
    // Makes the body a blob under `finalPath` (ignored in memory mode); nullopt, with nothing left on
    // disk, when any write, the close or the rename failed (a full disk).
    std::optional<Blob> commit(const std::string& finalPath);

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
};

// Outcome of a change to an upload: done, the upload is no longer open, or the disk refused it.
enum class Stored { Ok, NotOpen, Failed };

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
    std::vector<std::string> buckets() const;  // sorted
    void createBucket(const std::string& bucket);
    // When the bucket was made (ISO-8601 with milliseconds); nullopt when there is no such bucket.
    std::optional<std::string> bucketCreated(const std::string& bucket) const;

    // False when the object could not be written whole; what was stored before stays as it was.
    bool storeObject(ObjectInfo info, BlobWriter& body);
    std::optional<std::pair<ObjectInfo, Blob>> object(const std::string& bucket, const std::string& key) const;
    std::vector<ObjectInfo> objects() const;
    // The bucket's objects whose keys start with `prefix` and sort after `after`, in byte order of the
    // keys; at most `limit` of them.
    std::vector<ObjectInfo> objectsAfter(const std::string& bucket, const std::string& prefix,
                                         const std::string& after, std::size_t limit) const;
    // Ok also when there was no such object; Failed when its record could not be removed (it stays).
    Stored deleteObject(const std::string& bucket, const std::string& key);
    // Stores `info` (bucket, key and attributes of the copy) with the bytes of the source object, shared
    // with it rather than copied. NotOpen when the source is gone.
    Stored copyObject(const std::string& srcBucket, const std::string& srcKey, ObjectInfo info);
    // Changes an object's attributes (ACL, tags) in place; NotOpen when there is no such object.
    Stored updateObject(const std::string& bucket, const std::string& key,
                        const std::function<void(ObjectInfo&)>& change);

    // The new upload's id; nullopt when its record could not be written.
    std::optional<std::string> createUpload(const std::string& bucket, const std::string& key,
                                            const std::string& contentType,
                                            const std::map<std::string, std::string>& metadata,
                                            const std::string& initiated = "");
    std::optional<StoredUpload> upload(const std::string& uploadId) const;
    // A part that cannot be written leaves the upload without that part number.
    Stored storePart(const std::string& uploadId, PartInfo part, BlobWriter& body);
    // Makes the listed parts one object and closes the upload in one step, without copying the parts'
    // bytes; the upload stays open when the object cannot be written.
    Stored completeUpload(const std::string& uploadId, ObjectInfo info, const std::vector<int>& partNumbers);
    bool abortUpload(const std::string& uploadId);
    std::vector<UploadInfo> uploads() const;

private:
    struct StoredObject {
        ObjectInfo info;
        Blob blob;
    };
    std::string objectPath(const std::string& bucket, const std::string& key) const;
    std::string uploadDir(const std::string& uploadId) const;
    bool saveObjectMeta(const StoredObject& object) const;
    bool saveUploadMeta(const StoredUpload& upload) const;
    void closeUpload(StoredUpload& upload, UploadState state);
    void loadObjects();
    void loadUploads();
    bool putObjectLocked(StoredObject object);
    std::optional<Blob::Piece> linkPart(const Blob& part, const std::string& objectBase, const std::string& uploadId,
                                        int number);

    std::string dir_;
    mutable std::mutex mutex_;
    std::map<std::string, std::string> buckets_;  // name -> creation time
    std::map<std::pair<std::string, std::string>, StoredObject> objects_;
    std::map<std::string, StoredUpload> uploads_;
    std::uint64_t tempCounter_ = 0;
};

}  // namespace quorvane::emulator
