// Object storage: what a client can learn about buckets (HeadBucket, GetBucketInfo, GetBucketLocation,
// ListBuckets). Every bucket is private, Standard, locally redundant, in the emulator's region.
#include <charconv>

#include "emulator/oss_service.h"
#include "emulator/oss_xml_build.h"

namespace quorvane::emulator {
namespace {

std::string location(const Exchange& ex) { return "oss-" + ex.impl.options.region; }

void addOwner(pugi::xml_node parent) {
    auto owner = parent.append_child("Owner");
    xmlAdd(owner, "ID", kOwnerId);
    xmlAdd(owner, "DisplayName", kOwnerId);
}

void answerXml(Exchange& ex, const pugi::xml_document& doc) {
    ex.res.status = 200;
    ex.res.set_content(xmlText(doc), "application/xml");
}

// The facts ListBuckets and GetBucketInfo share, in the service's order.
void addBucketFacts(pugi::xml_node bucket, const Exchange& ex, const std::string& name) {
    xmlAdd(bucket, "CreationDate", ex.impl.storage.bucketCreated(name).value_or(""));
    xmlAdd(bucket, "ExtranetEndpoint", ex.impl.hostPort());
    xmlAdd(bucket, "IntranetEndpoint", ex.impl.hostPort());
    xmlAdd(bucket, "Location", location(ex));
    xmlAdd(bucket, "Name", name);
    xmlAdd(bucket, "Region", ex.impl.options.region);
    xmlAdd(bucket, "StorageClass", "Standard");
}

}  // namespace

void headBucket(OssRequest& r) {
    r.ex.res.status = 200;
    r.ex.res.set_header("x-oss-bucket-region", r.ex.impl.options.region);
}

void getBucketLocation(OssRequest& r) {
    pugi::xml_document doc;
    xmlRoot(doc, "LocationConstraint").text().set(location(r.ex).c_str());
    answerXml(r.ex, doc);
}

void getBucketInfo(OssRequest& r) {
    pugi::xml_document doc;
    auto bucket = xmlRoot(doc, "BucketInfo").append_child("Bucket");
    xmlAdd(bucket, "AccessMonitor", "Disabled");
    addBucketFacts(bucket, r.ex, r.bucket);
    xmlAdd(bucket, "TransferAcceleration", "Disabled");
    xmlAdd(bucket, "CrossRegionReplication", "Disabled");
    xmlAdd(bucket, "DataRedundancyType", "LRS");
    xmlAdd(bucket, "Versioning", "");
    xmlAdd(bucket, "Comment", "");
    addOwner(bucket);
    xmlAdd(bucket.append_child("AccessControlList"), "Grant", "private");
    auto encryption = bucket.append_child("ServerSideEncryptionRule");
    xmlAdd(encryption, "SSEAlgorithm", "None");
    auto logging = bucket.append_child("BucketPolicy");
    xmlAdd(logging, "LogBucket", "");
    xmlAdd(logging, "LogPrefix", "");
    answerXml(r.ex, doc);
}

void listBuckets(OssRequest& r) {
    auto& ex = r.ex;
    auto prefix = ex.param("prefix").value_or("");
    auto marker = ex.param("marker").value_or("");
    std::size_t max = 100;
    if (auto text = ex.param("max-keys")) {
        auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), max);
        if (ec != std::errc() || end != text->data() + text->size() || max < 1 || max > 1000)
            return ossError(ex, "", 400, "InvalidArgument", "Argument max-keys must be an integer between 1 and 1000.",
                            {{"ArgumentName", "max-keys"}, {"ArgumentValue", *text}});
    }
    std::vector<std::string> names;
    bool truncated = false;
    for (auto& name : ex.impl.storage.buckets()) {  // in name order
        if (!startsWith(name, prefix) || name <= marker) continue;
        if (names.size() == max) {
            truncated = true;
            break;
        }
        names.push_back(std::move(name));
    }
    pugi::xml_document doc;
    auto result = xmlRoot(doc, "ListAllMyBucketsResult");
    if (ex.hasParam("prefix")) xmlAdd(result, "Prefix", prefix);
    if (ex.hasParam("marker")) xmlAdd(result, "Marker", marker);
    if (ex.hasParam("max-keys")) xmlAdd(result, "MaxKeys", std::to_string(max));
    if (truncated) {
        xmlAdd(result, "IsTruncated", "true");
        xmlAdd(result, "NextMarker", names.back());
    }
    addOwner(result);
    auto buckets = result.append_child("Buckets");
    for (const auto& name : names) addBucketFacts(buckets.append_child("Bucket"), ex, name);
    answerXml(ex, doc);
}

}  // namespace quorvane::emulator
