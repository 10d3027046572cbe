// Object storage: naming the operation of a request. Everything that could make a request mean something
// else than its plain form counts, so that an operation the emulator does not serve is refused rather
// than taken for a plain upload, read or delete.
#include "emulator/oss_operations.h"

#include <map>
#include <set>

namespace quorvane::emulator {
namespace {

// Query parameters that name a sub-resource or change what an operation does. Parameters that only
// qualify a request (security-token, x-oss-traffic-limit, list parameters) are not among them.
const std::set<std::string>& subResources() {
    static const std::set<std::string> names = {
        "acl", "append", "archiveDirectRead", "asyncFetch", "bucketInfo", "callback", "callback-var", "cname",
        "comp", "continuation-token", "cors", "delete", "encryption", "endTime", "httpsConfig", "img",
        "inventory", "inventoryId", "lifecycle", "live", "location", "logging", "metaQuery", "objectMeta",
        "partNumber", "policy", "policyStatus", "position", "publicAccessBlock", "qos", "qosInfo", "referer",
        "regionList", "replication", "replicationLocation", "replicationProgress", "requestPayment",
        "resourceGroup", "response-cache-control", "response-content-disposition", "response-content-encoding",
        "response-content-language", "response-content-type", "response-expires", "restore", "rtc", "seal",
        "select", "sequential", "startTime", "stat", "status", "style", "styleName", "symlink", "tagging",
        "transferAcceleration", "uploadId", "uploads", "versionId", "versioning", "versions", "vod", "website",
        "worm", "wormExtend", "wormId", "x-oss-async-process", "x-oss-process", "accessMonitor", "responseHeader",
        "overwriteConfig", "dataRedundancyTransition", "accessPoint", "userDefinedLogFieldsConfig"};
    return names;
}

// The sub-resources each served operation takes; any other one present means another operation.
const std::map<std::string, std::set<std::string>>& takes() {
    static const std::set<std::string> responseOverrides = {
        "response-cache-control", "response-content-disposition", "response-content-encoding",
        "response-content-language", "response-content-type", "response-expires"};
    static const std::map<std::string, std::set<std::string>> table = {
        {"PutObject", {}},
        {"GetObject", responseOverrides},
        {"HeadObject", responseOverrides},
        {"GetObjectMeta", {"objectMeta"}},
        {"DeleteObject", {}},
        {"CopyObject", {}},
        {"InitiateMultipartUpload", {"uploads", "sequential"}},
        {"UploadPart", {"uploadId", "partNumber"}},
        {"ListParts", {"uploadId"}},
        {"CompleteMultipartUpload", {"uploadId"}},
        {"AbortMultipartUpload", {"uploadId"}},
        {"PutObjectACL", {"acl"}},
        {"GetObjectACL", {"acl"}},
        {"PutObjectTagging", {"tagging"}},
        {"GetObjectTagging", {"tagging"}},
        {"DeleteObjectTagging", {"tagging"}},
        {"PutBucket", {}},
        {"HeadBucket", {}},
        {"ListObjects", {}},
        {"ListObjectsV2", {"continuation-token"}},
        {"ListMultipartUploads", {"uploads"}},
        {"DeleteMultipleObjects", {"delete"}},
        {"GetBucketInfo", {"bucketInfo"}},
        {"GetBucketLocation", {"location"}},
        {"ListBuckets", {}},
    };
    return table;
}

std::string capitalized(std::string s) {
    if (!s.empty() && s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
    return s;
}

struct Query {
    const Exchange& ex;
    bool has(const char* name) const { return ex.hasParam(name); }
    // The first sub-resource present, "" when none.
    std::string firstSubResource() const {
        for (const auto& [name, _] : ex.query())
            if (subResources().count(name)) return name;
        return "";
    }
};

std::string objectOperation(const std::string& method, const Query& q, bool copy) {
    if (method == "PUT") {
        if (q.has("uploadId") || q.has("partNumber")) return copy ? "UploadPartCopy" : "UploadPart";
        if (q.has("acl")) return "PutObjectACL";
        if (q.has("tagging")) return "PutObjectTagging";
        if (q.has("symlink")) return "PutSymlink";
        return copy ? "CopyObject" : "PutObject";
    }
    if (method == "GET") {
        if (q.has("uploadId")) return "ListParts";
        if (q.has("acl")) return "GetObjectACL";
        if (q.has("tagging")) return "GetObjectTagging";
        if (q.has("symlink")) return "GetSymlink";
        if (q.has("x-oss-process")) return "ProcessObject";
        return "GetObject";
    }
    if (method == "HEAD") return q.has("objectMeta") ? "GetObjectMeta" : "HeadObject";
    if (method == "POST") {
        if (q.has("uploads")) return "InitiateMultipartUpload";
        if (q.has("uploadId")) return "CompleteMultipartUpload";
        if (q.has("append")) return "AppendObject";
        if (q.has("restore")) return "RestoreObject";
        if (q.has("seal")) return "SealAppendObject";
        if (q.has("x-oss-process")) return q.ex.param("x-oss-process")->find("select") != std::string::npos
                                               ? "SelectObject"
                                               : "ProcessObject";
        return "PostObject";  // a form upload, sent to an object's address
    }
    if (method == "DELETE") {
        if (q.has("uploadId")) return "AbortMultipartUpload";
        if (q.has("tagging")) return "DeleteObjectTagging";
        return "DeleteObject";
    }
    return capitalized(toLower(method)) + "Object";
}

std::string bucketOperation(const std::string& method, const Query& q) {
    auto sub = q.firstSubResource();
    if (method == "GET") {
        if (q.has("uploads")) return "ListMultipartUploads";
        if (q.has("location")) return "GetBucketLocation";
        if (q.has("bucketInfo")) return "GetBucketInfo";
        if (!sub.empty() && sub != "continuation-token") return "GetBucket" + capitalized(sub);
        return q.ex.param("list-type") == "2" ? "ListObjectsV2" : "ListObjects";
    }
    if (method == "POST") {
        if (q.has("delete")) return "DeleteMultipleObjects";
        return sub.empty() ? "PostObject" : "PostBucket" + capitalized(sub);
    }
    if (method == "PUT") return "PutBucket" + capitalized(sub);
    if (method == "DELETE") return "DeleteBucket" + capitalized(sub);
    if (method == "HEAD") return "HeadBucket";
    return capitalized(toLower(method)) + "Bucket";
}

}  // namespace

std::string ossOperation(const Exchange& ex, bool hasBucket, bool hasKey) {
    Query q{ex};
    const auto& method = ex.req.method;
    std::string op;
    if (hasKey) op = objectOperation(method, q, ex.header("x-oss-copy-source").has_value());
    else if (hasBucket) op = bucketOperation(method, q);
    else op = method == "GET" ? "ListBuckets" : capitalized(toLower(method)) + "Service";
    auto served = takes().find(op);
    if (served == takes().end()) return op;
    for (const auto& [name, _] : ex.query())
        if (subResources().count(name) && !served->second.count(name)) return op + "?" + name;
    return op;
}

}  // namespace quorvane::emulator
