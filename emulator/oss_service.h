#pragma once
// Object storage: shared pieces of the request handlers.
#include <map>
#include <optional>
#include <string>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

struct OssRequest {
    Exchange& ex;
    std::string bucket;
    std::string key;
};

void ossError(Exchange& ex, const std::string& bucket, int status, const std::string& code, const std::string& message,
              const Pairs& extra = {});
// Object names: 1 to 1023 bytes of UTF-8, not starting with a slash or a backslash.
bool validObjectName(const std::string& key);
std::string quotedEtag(const std::string& md5Raw);
void setCrcHeader(Exchange& ex, std::uint64_t crc);
std::map<std::string, std::string> metaHeaders(const Exchange& ex);
// Streams the request body into a new blob; answers the error itself and returns nullptr on failure
// (too large, Content-MD5 mismatch, body cut short).
std::unique_ptr<BlobWriter> receiveBody(OssRequest& r);

void putObject(OssRequest& r);
void getObject(OssRequest& r, bool head);
void putBucket(OssRequest& r);
void initiateMultipartUpload(OssRequest& r);
void uploadPart(OssRequest& r);
void listParts(OssRequest& r);
void completeMultipartUpload(OssRequest& r);
void abortMultipartUpload(OssRequest& r);
void listObjects(OssRequest& r);  // v1 and v2 (list-type=2)
void listMultipartUploads(OssRequest& r);
void deleteObject(OssRequest& r);
void deleteMultipleObjects(OssRequest& r);
void copyObject(OssRequest& r);
void putObjectAcl(OssRequest& r);
void getObjectAcl(OssRequest& r);
void putObjectTagging(OssRequest& r);
void getObjectTagging(OssRequest& r);
void deleteObjectTagging(OssRequest& r);
void getBucketInfo(OssRequest& r);
void getBucketLocation(OssRequest& r);
void headBucket(OssRequest& r);
void listBuckets(OssRequest& r);

// The ACL an x-oss-object-acl header asks for, "" without one; nullopt, with InvalidArgument answered,
// for a value the service does not know.
std::optional<std::string> requestedAcl(OssRequest& r);
// Tags from an x-oss-tagging header ("k1=v1&k2=v2"), none without one; false, with the error answered,
// when they break the service's limits.
bool taggingHeader(OssRequest& r, std::vector<std::pair<std::string, std::string>>& tags);
// True, with FileAlreadyExists answered, when x-oss-forbid-overwrite is set and the object exists.
bool refusesOverwrite(OssRequest& r);

// Owner of every bucket and object, as listings and ACL documents show it.
inline constexpr const char* kOwnerId = "1738294650183726";
// Whether keys in the answer are to be percent-encoded (encoding-type=url, as a parameter or a header);
// nullopt, with InvalidArgument answered, for any other encoding.
std::optional<bool> keyEncoding(OssRequest& r);
// A key, prefix or marker as an answer shows it: as it is, or percent-encoded.
std::string keyText(const std::string& text, bool urlEncoded);

}  // namespace quorvane::emulator
