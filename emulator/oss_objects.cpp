// Object storage: simple objects (PutObject, GetObject, HeadObject) and bucket creation.
#include <regex>

#include "emulator/oss_service.h"

namespace quorvane::emulator {
namespace {

bool chunked(const Exchange& ex) {
    return toLower(ex.header("Transfer-Encoding").value_or("")).find("chunked") != std::string::npos;
}

void setObjectHeaders(Exchange& ex, const ObjectInfo& info) {
    ex.res.set_header("ETag", info.etag);
    setCrcHeader(ex, info.crc64);
    ex.res.set_header("x-oss-object-type", info.partCount > 0 ? "Multipart" : "Normal");
    ex.res.set_header("x-oss-storage-class", "Standard");
    ex.res.set_header("Accept-Ranges", "bytes");
    if (auto t = foundation::parseIso8601Utc(info.lastModified))
        ex.res.set_header("Last-Modified", foundation::rfc1123Gmt(*t));
    for (const auto& [k, v] : info.metadata) ex.res.set_header(k, v);
    if (!info.tags.empty()) ex.res.set_header("x-oss-tagging-count", std::to_string(info.tags.size()));
    if (info.partCount == 0 && info.etag.size() == 34) {
        ex.res.set_header("Content-MD5", foundation::base64Encode(hexToBytes(info.etag.substr(1, 32))));
    }
}

}  // namespace

std::unique_ptr<BlobWriter> receiveBody(OssRequest& r) {
    auto& ex = r.ex;
    const auto max = ex.impl.options.maxObjectSize;
    auto length = ex.contentLength();
    if (!length && !chunked(ex)) {
        ossError(ex, r.bucket, 411, "MissingContentLength", "You must provide the Content-Length HTTP header.");
        return nullptr;
    }
    auto tooLarge = [&] {
        ossError(ex, r.bucket, 400, "EntityTooLarge", "Your proposed upload exceeds the maximum allowed size.");
    };
    if (length && *length > max) return tooLarge(), nullptr;
    auto writer = ex.impl.storage.writer(length.value_or(0));
    bool overflow = false;
    bool whole = ex.readBody([&](const char* data, std::size_t size) {
        if (writer->size() + size > max) return !(overflow = true);
        return writer->write(data, size);
    });
    if (overflow) return tooLarge(), nullptr;
    if (!writer->ok()) {
        ossError(ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
        return nullptr;
    }
    if (!whole || (length && writer->size() != *length)) {
        ossError(ex, r.bucket, 400, "IncompleteBody",
                 "You did not provide the number of bytes specified by the Content-Length HTTP header.");
        return nullptr;
    }
    if (auto md5 = ex.header("Content-MD5")) {
        auto claimed = foundation::base64Decode(trim(*md5));
        if (!claimed || *claimed != writer->md5Raw()) {
            ossError(ex, r.bucket, 400, "InvalidDigest", "The Content-MD5 you specified is not valid.");
            return nullptr;
        }
    }
    return writer;
}

bool refusesOverwrite(OssRequest& r) {
    if (!iequals(trim(r.ex.header("x-oss-forbid-overwrite").value_or("")), "true") ||
        !r.ex.impl.storage.object(r.bucket, r.key))
        return false;
    ossError(r.ex, r.bucket, 409, "FileAlreadyExists", "The object you specified already exists and can not be overwritten.");
    return true;
}

void putObject(OssRequest& r) {
    auto& ex = r.ex;
    auto acl = requestedAcl(r);
    std::vector<std::pair<std::string, std::string>> tags;
    if (!acl || !taggingHeader(r, tags) || refusesOverwrite(r)) return;
    auto body = receiveBody(r);
    if (!body) return;
    ObjectInfo info;
    info.bucket = r.bucket;
    info.key = r.key;
    info.size = body->size();
    info.etag = quotedEtag(body->md5Raw());
    info.crc64 = body->crc();
    info.contentType = ex.header("Content-Type").value_or("application/octet-stream");
    info.metadata = metaHeaders(ex);
    info.lastModified = ossTime(ex.impl.now());
    info.acl = acl->empty() ? "default" : *acl;
    info.tags = std::move(tags);
    if (!ex.impl.storage.storeObject(info, *body))
        return ossError(ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
    ex.res.status = 200;
    ex.res.set_header("ETag", info.etag);
    setCrcHeader(ex, info.crc64);
    ex.res.set_header("Content-MD5", foundation::base64Encode(body->md5Raw()));
}

void getObject(OssRequest& r, bool head) {
    auto& ex = r.ex;
    auto found = ex.impl.storage.object(r.bucket, r.key);
    if (!found) return ossError(ex, r.bucket, 404, "NoSuchKey", "The specified key does not exist.", {{"Key", r.key}});
    auto& [info, blob] = *found;
    // The server library cuts the provider's bytes to a Range itself, but keeps a status set here.
    ex.res.status = ex.req.ranges.empty() ? 200 : 206;
    setObjectHeaders(ex, info);
    (void)head;  // the server library sends no body for HEAD but keeps the provider's length
    auto reader = std::make_shared<BlobReader>(blob);
    if (!reader->ok())
        return ossError(ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
    // response-* parameters override the answer's headers.
    std::string type = info.contentType;
    for (const auto& [name, value] : ex.query()) {
        if (!startsWith(name, "response-")) continue;
        auto header = name.substr(9);
        if (header == "content-type") type = value;
        else if (header == "expires" || header == "cache-control" || startsWith(header, "content-"))
            ex.res.set_header(header, value);
    }
    ex.res.set_content_provider(blob.size, type,
                                [reader](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                    auto chunk = reader->read(offset, length);
                                    if (chunk.empty()) return false;
                                    sink.write(chunk.data(), chunk.size());
                                    return true;
                                });
}

void putBucket(OssRequest& r) {
    static const std::regex valid("[a-z0-9][a-z0-9-]{1,61}[a-z0-9]");
    if (!std::regex_match(r.bucket, valid))
        return ossError(r.ex, r.bucket, 400, "InvalidBucketName", "The specified bucket is not valid.",
                        {{"BucketName", r.bucket}});
    r.ex.impl.storage.createBucket(r.bucket);
    r.ex.res.status = 200;
    r.ex.res.set_header("Location", "/" + r.bucket);
}

}  // namespace quorvane::emulator
