#pragma once
// Object storage: shared pieces of the request handlers.
#include <map>
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

}  // namespace quorvane::emulator
