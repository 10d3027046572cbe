// Object storage: CopyObject (PUT with x-oss-copy-source), within a bucket or from another one.
#include "emulator/oss_service.h"
#include "emulator/oss_xml_build.h"

namespace quorvane::emulator {
namespace {

void invalidArgument(OssRequest& r, const std::string& message, const std::string& name, const std::string& value) {
    ossError(r.ex, r.bucket, 400, "InvalidArgument", message, {{"ArgumentName", name}, {"ArgumentValue", value}});
}

// "x-oss-metadata-directive" and its like: `fallback` when absent, "COPY" or "REPLACE" (any case), else nullopt.
std::optional<std::string> directive(const Exchange& ex, const char* header) {
    auto value = toLower(trim(ex.header(header).value_or("copy")));
    if (value == "copy" || value == "replace") return value;
    return std::nullopt;
}

std::string unquoted(std::string etag) {
    etag = trim(etag);
    if (etag.size() >= 2 && etag.front() == '"' && etag.back() == '"') etag = etag.substr(1, etag.size() - 2);
    return etag;
}

// The x-oss-copy-source-if-* conditions: 0 when they hold, else the status to answer (412 or 304).
int preconditionStatus(const Exchange& ex, const ObjectInfo& source) {
    auto modified = foundation::parseIso8601Utc(source.lastModified);
    auto time = [&](const char* header) {
        auto text = ex.header(header);
        return text ? foundation::parseRfc1123(*text) : std::nullopt;
    };
    if (auto match = ex.header("x-oss-copy-source-if-match"); match && !iequals(unquoted(*match), unquoted(source.etag)))
        return 412;
    if (auto since = time("x-oss-copy-source-if-unmodified-since"); since && modified && *modified > *since) return 412;
    if (auto none = ex.header("x-oss-copy-source-if-none-match"); none && iequals(unquoted(*none), unquoted(source.etag)))
        return 304;
    if (auto since = time("x-oss-copy-source-if-modified-since"); since && modified && *modified <= *since) return 304;
    return 0;
}

}  // namespace

void copyObject(OssRequest& r) {
    auto& ex = r.ex;
    // The server library has percent-decoded the header already: "/bucket/key" as the client meant it.
    auto source = ex.header("x-oss-copy-source").value_or("");
    auto path = startsWith(source, "/") ? source.substr(1) : source;
    auto slash = path.find('/');
    auto srcBucket = path.substr(0, slash);
    auto srcKey = slash == std::string::npos ? "" : path.substr(slash + 1);
    if (srcBucket.empty() || !validObjectName(srcKey))
        return invalidArgument(r, "Copy Source must mention the source bucket and key: /sourcebucket/sourcekey.",
                               "x-oss-copy-source", source);
    auto metadataDirective = directive(ex, "x-oss-metadata-directive");
    if (!metadataDirective)
        return invalidArgument(r, "Unknown metadata directive.", "x-oss-metadata-directive",
                               ex.header("x-oss-metadata-directive").value_or(""));
    auto taggingDirective = directive(ex, "x-oss-tagging-directive");
    if (!taggingDirective)
        return invalidArgument(r, "Unknown tagging directive.", "x-oss-tagging-directive",
                               ex.header("x-oss-tagging-directive").value_or(""));
    auto acl = requestedAcl(r);
    if (!acl) return;
    std::vector<std::pair<std::string, std::string>> tags;
    if (*taggingDirective == "replace" && !taggingHeader(r, tags)) return;
    if (!ex.impl.storage.hasBucket(srcBucket))
        return ossError(ex, r.bucket, 404, "NoSuchBucket", "The specified bucket does not exist.",
                        {{"BucketName", srcBucket}});
    auto found = ex.impl.storage.object(srcBucket, srcKey);
    if (!found) return ossError(ex, r.bucket, 404, "NoSuchKey", "The specified key does not exist.", {{"Key", srcKey}});
    const auto& original = found->first;
    if (auto status = preconditionStatus(ex, original); status == 412)
        return ossError(ex, r.bucket, 412, "PreconditionFailed", "At least one of the pre-conditions you specified did not hold.");
    else if (status == 304) {
        ex.res.status = 304;
        return;
    }
    if (refusesOverwrite(r)) return;

    ObjectInfo copy = original;
    copy.bucket = r.bucket;
    copy.key = r.key;
    copy.lastModified = ossTime(ex.impl.now());
    copy.acl = acl->empty() ? "default" : *acl;
    if (*metadataDirective == "replace") {
        copy.metadata = metaHeaders(ex);
        copy.contentType = ex.header("Content-Type").value_or("application/octet-stream");
    }
    if (*taggingDirective == "replace") copy.tags = tags;
    switch (ex.impl.storage.copyObject(srcBucket, srcKey, copy)) {
        case Stored::Ok: break;
        case Stored::NotOpen:  // deleted meanwhile
            return ossError(ex, r.bucket, 404, "NoSuchKey", "The specified key does not exist.", {{"Key", srcKey}});
        case Stored::Failed:
            return ossError(ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
    }
    pugi::xml_document doc;
    auto result = xmlRoot(doc, "CopyObjectResult");
    xmlAdd(result, "ETag", copy.etag);
    xmlAdd(result, "LastModified", copy.lastModified);
    ex.res.status = 200;
    ex.res.set_header("ETag", copy.etag);
    setCrcHeader(ex, copy.crc64);
    ex.res.set_content(xmlText(doc), "application/xml");
}

}  // namespace quorvane::emulator
