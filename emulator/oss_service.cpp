// Object storage front: addressing (path-style and virtual-hosted), operation names, signatures.
#include "emulator/oss_service.h"

#include <arpa/inet.h>

#include "emulator/oss_operations.h"
#include "emulator/oss_signature_check.h"
#include "emulator/oss_xml.h"

namespace quorvane::emulator {
namespace {

bool isIpAddress(const std::string& host) {
    unsigned char buf[16];
    return inet_pton(AF_INET, host.c_str(), buf) == 1 || inet_pton(AF_INET6, host.c_str(), buf) == 1;
}

std::string hostWithoutPort(std::string host) {
    if (!host.empty() && host.front() == '[') return host.substr(1, host.find(']') - 1);
    auto colon = host.rfind(':');
    if (colon != std::string::npos && host.find(':') == colon) host.resize(colon);
    return toLower(host);
}

// "<bucket>.<service host>" names a bucket; the emulator's own names, IPs and "oss-*" endpoints don't.
std::string virtualHostBucket(const Exchange& ex) {
    auto host = hostWithoutPort(ex.header("Host").value_or(""));
    auto own = hostWithoutPort(ex.impl.hostPort());
    auto dot = host.find('.');
    if (host.empty() || isIpAddress(host) || host == own || host == "localhost" || dot == std::string::npos ||
        dot == 0 || dot + 1 == host.size() || startsWith(host, "oss-"))
        return "";
    return host.substr(0, dot);
}

OssRequest resolve(Exchange& ex) {
    OssRequest r{ex, virtualHostBucket(ex), ""};
    std::string path = ex.req.path;
    if (!path.empty() && path.front() == '/') path.erase(0, 1);
    auto slash = path.find('/');
    // A path that starts with the Host's bucket is path-style: ali-oss sends such URLs with a
    // virtual-hosted Host header when its endpoint is an IP address.
    if (!r.bucket.empty() && path.substr(0, slash) != r.bucket) {
        r.key = path;
        return r;
    }
    r.bucket = path.substr(0, slash);
    r.key = slash == std::string::npos ? "" : path.substr(slash + 1);
    return r;
}

bool authorized(OssRequest& r) {
    auto& ex = r.ex;
    if (!ex.impl.options.verifySignatures) return true;
    OssSignedRequest signedRequest{ex.req.method, ex.headers(), r.bucket, r.key, ex.query()};
    auto lookup = [&](const std::string& keyId, const std::optional<std::string>& token) {
        return ex.impl.sts.check(keyId, token, ex.impl.now());
    };
    const OssSignaturePolicy policy{ex.impl.options.region, ex.impl.options.acceptV1Signatures};
    auto failure = checkOssSignature(signedRequest, lookup, policy, ex.impl.now());
    if (!failure) return true;
    ossError(ex, r.bucket, failure->status, failure->code, failure->message, failure->extra);
    return false;
}

using Handler = void (*)(OssRequest&);

// The operations served; every other one is refused with 501 before anything is read or changed.
const std::map<std::string, Handler>& handlers() {
    static const std::map<std::string, Handler> table = {
        {"PutObject", putObject},
        {"GetObject", [](OssRequest& r) { getObject(r, false); }},
        {"HeadObject", [](OssRequest& r) { getObject(r, true); }},
        {"GetObjectMeta", [](OssRequest& r) { getObject(r, true); }},  // HEAD ?objectMeta: the same headers
        {"InitiateMultipartUpload", initiateMultipartUpload},
        {"UploadPart", uploadPart},
        {"ListParts", listParts},
        {"CompleteMultipartUpload", completeMultipartUpload},
        {"AbortMultipartUpload", abortMultipartUpload},
        {"ListObjects", listObjects},
        {"ListObjectsV2", listObjects},
        {"ListMultipartUploads", listMultipartUploads},
        {"DeleteObject", deleteObject},
        {"DeleteMultipleObjects", deleteMultipleObjects},
        {"CopyObject", copyObject},
        {"PutObjectACL", putObjectAcl},
        {"GetObjectACL", getObjectAcl},
        {"PutObjectTagging", putObjectTagging},
        {"GetObjectTagging", getObjectTagging},
        {"DeleteObjectTagging", deleteObjectTagging},
        {"GetBucketInfo", getBucketInfo},
        {"GetBucketLocation", getBucketLocation},
        {"HeadBucket", headBucket},
        {"ListBuckets", listBuckets},
    };
    return table;
}

}  // namespace

bool validObjectName(const std::string& key) {
    return !key.empty() && key.size() <= 1023 && key.front() != '/' && key.front() != '\\' &&
           key.find('\0') == std::string::npos && validUtf8(key);
}

void ossError(Exchange& ex, const std::string& bucket, int status, const std::string& code, const std::string& message,
              const Pairs& extra) {
    ex.record.errorCode = code;
    ex.res.status = status;
    if (ex.req.method == "HEAD") return;  // a HEAD answer has no body
    auto hostId = bucket.empty() ? ex.impl.hostPort() : bucket + "." + ex.impl.hostPort();
    ex.res.set_content(errorXml(code, message, ex.requestId, hostId, extra), "application/xml");
}

std::string quotedEtag(const std::string& md5Raw) { return "\"" + foundation::hexUpper(md5Raw) + "\""; }

void setCrcHeader(Exchange& ex, std::uint64_t crc) {
    ex.res.set_header("x-oss-hash-crc64ecma", std::to_string(ex.corruptCrc ? crc ^ 0x5A5A5A5A5A5A5A5AULL : crc));
}

std::map<std::string, std::string> metaHeaders(const Exchange& ex) {
    std::map<std::string, std::string> out;
    for (const auto& [k, v] : ex.req.headers)
        if (startsWith(toLower(k), "x-oss-meta-")) out[toLower(k)] = v;
    return out;
}

void serveOss(Exchange& ex) {
    auto r = resolve(ex);
    auto op = ossOperation(ex, !r.bucket.empty(), !r.key.empty());
    ex.record.service = "oss";
    ex.record.operation = op;
    ex.res.set_header("Server", "AliyunOSS");
    ex.res.set_header("Date", foundation::rfc1123Gmt(ex.impl.now()));
    auto injected = [&](const Fault& f) { ossError(ex, r.bucket, f.status, f.code, f.message.empty() ? f.code : f.message); };
    if (ex.applyFault(op, injected) || !authorized(r)) return;
    if (op == "PutBucket") return putBucket(r);
    auto handler = handlers().find(op);
    if (handler == handlers().end())
        return ossError(ex, r.bucket, 501, "NotImplemented", "The operation " + op + " is not implemented here.");
    if (op != "ListBuckets" && !ex.impl.storage.hasBucket(r.bucket))
        return ossError(ex, r.bucket, 404, "NoSuchBucket", "The specified bucket does not exist.",
                        {{"BucketName", r.bucket}});
    if (!r.key.empty() && !validObjectName(r.key))
        return ossError(ex, r.bucket, 400, "InvalidObjectName", "The specified object is not valid.");
    // Everything stored beside an object is text: metadata, its type and notification.
    for (const auto& [name, value] : ex.req.headers)
        if ((startsWith(toLower(name), "x-oss-meta-") || iequals(name, "Content-Type") ||
             iequals(name, "x-oss-notification")) &&
            !validUtf8(value))
            return ossError(ex, r.bucket, 400, "InvalidArgument", "The header " + name + " is not valid UTF-8.");
    handler->second(r);
}

}  // namespace quorvane::emulator
