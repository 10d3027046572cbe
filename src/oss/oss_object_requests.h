#pragma once
// Requests and results of the object-storage client's reading, listing and deleting calls, and of
// presigned URLs (the uploads' own are in oss_requests.h).
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "oss/oss_requests.h"

namespace quorvane::oss {

// GetObject, whole or one byte range. The bytes come back in memory: ask for ranges of a size that fits.
struct OSSGetObjectRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
    // Inclusive byte range [first, last]; unset: the whole object.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> range;
};

struct OSSGetObjectResult : OSSResult {
    std::string data;
    std::string eTag;
    std::uint64_t objectSize = 0;  // of the whole object (from Content-Range for a range)
    std::string lastModified;      // as the service wrote it
};

// One page of a bucket's objects (ListObjects, version 1 of the listing).
struct OSSListObjectsRequest : OSSRequest {
    std::string bucketName;
    std::string prefix;
    std::string delimiter;  // "/": keys below the next "/" come back as common prefixes
    std::string marker;     // list keys after this one
    int maxKeys = 0;        // 0: the service's default (100); at most 1000
};

struct OSSObjectSummary {
    std::string key;
    std::uint64_t size = 0;
    std::string eTag;
    std::string lastModified;  // ISO-8601, as the service wrote it
    std::string storageClass;
};

struct OSSListObjectsResult : OSSResult {
    std::vector<OSSObjectSummary> objects;
    std::vector<std::string> commonPrefixes;
    bool isTruncated = false;
    std::string nextMarker;  // where the next page starts when truncated
};

struct OSSDeleteObjectRequest : OSSRequest {
    std::string bucketName;
    std::string objectKey;
};

struct OSSDeleteObjectResult : OSSResult {};

// DeleteMultipleObjects: up to 1000 keys in one request.
struct OSSDeleteMultipleObjectsRequest : OSSRequest {
    std::string bucketName;
    std::vector<std::string> keys;
    bool quiet = false;  // the answer lists only the keys that failed
};

struct OSSDeleteFailure {
    std::string key, code, message;
};

struct OSSDeleteMultipleObjectsResult : OSSResult {
    std::vector<std::string> deletedKeys;
    std::vector<OSSDeleteFailure> failures;
};

// One page of the bucket's unfinished multipart uploads.
struct OSSListMultipartUploadsRequest : OSSRequest {
    std::string bucketName;
    std::string prefix;
    std::string keyMarker, uploadIdMarker;
    int maxUploads = 0;  // 0: the service's default (1000)
};

struct OSSMultipartUploadSummary {
    std::string key, uploadId, initiated;
};

struct OSSListMultipartUploadsResult : OSSResult {
    std::vector<OSSMultipartUploadSummary> uploads;
    bool isTruncated = false;
    std::string nextKeyMarker, nextUploadIdMarker;
};

// A URL that lets whoever holds it send one request without the keys, until it expires.
struct OSSPresignRequest {
    std::string method = "GET";  // GET or PUT
    std::string bucketName;
    std::string objectKey;
    std::chrono::seconds expires{3600};  // 1 s to 7 days
    std::string contentType;             // PUT: the Content-Type the uploader must send (signed)
};

}  // namespace quorvane::oss
