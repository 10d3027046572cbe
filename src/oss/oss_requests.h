#pragma once
// Requests and results of the object-storage client. A request is shared with the operation that
// runs it; cancel() ends that operation with the cancelled code (5).
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/http_client.h"
#include "oss/oss_cancellation.h"

namespace quorvane::oss {

// Bytes sent by this call, total bytes sent, total bytes expected. Never goes backwards and
// never passes the total, also when a part is sent again.
using OSSNetworkingUploadProgressBlock =
    std::function<void(std::int64_t bytesSent, std::int64_t totalBytesSent, std::int64_t totalBytesExpectedToSend)>;

class OSSRequest {
public:
    virtual ~OSSRequest() = default;
    void cancel() { token_->cancel(); }
    bool isCancelled() const { return token_->isCancelled(); }
    const std::shared_ptr<OSSCancellationToken>& cancellationToken() const { return token_; }
private:
    std::shared_ptr<OSSCancellationToken> token_ = std::make_shared<OSSCancellationToken>();
};

// What shows that a local file's bytes may have changed, without reading them. Any write moves the
// change time (ctime), which no program can set back, so a rewrite that restores the size and the
// modification time still shows; a file replaced under the same name has another inode.
struct OSSFileState {
    std::uint64_t size = 0;
    std::int64_t mtimeNs = 0;
    std::int64_t ctimeNs = 0;
    std::uint64_t inode = 0;
    std::uint64_t device = 0;
    bool operator==(const OSSFileState&) const = default;
};

// Single-request put of a file (streamed from disk) or of bytes in memory.
struct OSSPutObjectRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadingFileURL;                  // a local path (or "file://" URL); used when uploadingData is unset
    std::optional<std::string> uploadingData;      // bytes to store instead of a file
    std::string contentType;                       // empty: none sent
    std::map<std::string, std::string> objectMeta; // extra headers ("x-oss-meta-*", ...)
    OSSNetworkingUploadProgressBlock uploadProgress;
    // The file as the caller first saw it: a file in another state before the put, or changed before
    // its last byte is sent, fails with "FileChanged" and nothing is stored.
    std::optional<OSSFileState> expectedFileState;
};

struct OSSInitMultipartUploadRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string contentType;
    std::map<std::string, std::string> objectMeta;
};

// One part, from memory or from a range of a file.
struct OSSUploadPartRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadId;
    int partNumber = 0;                            // 1 .. 10000
    std::optional<std::string> uploadPartData;
    std::string uploadPartFileURL;
    std::uint64_t uploadPartFileOffset = 0;
    std::uint64_t uploadPartLength = 0;
    OSSNetworkingUploadProgressBlock uploadPartProgress;
};

// Lists every part of an upload, following the pages.
struct OSSListPartsRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadId;
    int maxParts = 0;  // page size; 0 = the service's default (1000)
};

struct OSSPartInfo {
    int partNum = 0;
    std::string eTag;           // as the service gave it (quoted)
    std::int64_t size = 0;
    std::uint64_t crc64 = 0;    // "x-oss-hash-crc64ecma" of the part
};

struct OSSCompleteMultipartUploadRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadId;
    std::vector<OSSPartInfo> partInfos;                    // ascending part numbers
    std::map<std::string, std::string> completeMetaHeader; // e.g. "x-oss-notification"
};

struct OSSAbortMultipartUploadRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadId;
};

struct OSSHeadObjectRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
};

// A multipart upload of a file that survives cancels and crashes: the parts already stored (per
// the checkpoint in recordDirectoryPath, checked against the service's part list) are not sent
// again. With an empty uploadId a new upload is initiated (or the checkpoint's one continued).
struct OSSResumableUploadRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    std::string uploadId;
    // The caller initiated uploadId a moment ago: nothing is stored under it, so no parts are listed.
    bool uploadIdIsNew = false;
    std::string uploadingFileURL;
    // The file as the caller first saw it: a file found in another state here, before the first part or
    // before the completion fails the upload instead of storing a mix of its old and new bytes.
    std::optional<OSSFileState> expectedFileState;
    std::int64_t partSize = 256 * 1024;             // at least 100 KiB; at most 10000 parts
    std::string recordDirectoryPath;                // empty: no checkpoint kept
    bool deleteUploadIdOnCancelling = true;         // cancel() also aborts the upload and its checkpoint
    std::map<std::string, std::string> completeMetaHeader;
    std::string contentType;                        // used when this request initiates the upload
    OSSNetworkingUploadProgressBlock uploadProgress;
    // Parts the service already held (checked against the file) cover `storedBytes` of `totalBytes`:
    // called once the parts are known, before any is sent, only when some are. On an operation thread.
    std::function<void(std::uint64_t storedBytes, std::uint64_t totalBytes)> uploadResumed;
};

// ---- results ----

struct OSSResult {
    long httpResponseCode = 0;
    std::string requestId;                      // "x-oss-request-id"
    foundation::Headers httpResponseHeaderFields;
    std::optional<std::uint64_t> remoteCRC64ecma;
    std::optional<std::uint64_t> localCRC64ecma;
};

struct OSSPutObjectResult : OSSResult {
    std::string eTag;
};

struct OSSInitMultipartUploadResult : OSSResult {
    std::string uploadId;
};

struct OSSUploadPartResult : OSSResult {
    std::string eTag;
};

struct OSSListPartsResult : OSSResult {
    std::vector<OSSPartInfo> parts;  // every page, ascending
};

struct OSSCompleteMultipartUploadResult : OSSResult {
    std::string location;
    std::string eTag;
};

struct OSSAbortMultipartUploadResult : OSSResult {};

struct OSSHeadObjectResult : OSSResult {
    std::int64_t contentLength = 0;
    std::string eTag;
};

struct OSSResumableUploadResult : OSSCompleteMultipartUploadResult {
    std::string uploadId;
};

}  // namespace quorvane::oss
