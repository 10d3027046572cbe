// Object storage: an object's ACL and tags (?acl, ?tagging, and the headers that set them on upload).
#include <set>

#include "emulator/oss_service.h"
#include "emulator/oss_xml_build.h"

namespace quorvane::emulator {
namespace {

constexpr std::size_t kMaxTags = 10;
constexpr std::size_t kMaxTagKey = 128;
constexpr std::size_t kMaxTagValue = 256;

using Tags = std::vector<std::pair<std::string, std::string>>;

void internalError(OssRequest& r) {
    ossError(r.ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
}

void noSuchKey(OssRequest& r) {
    ossError(r.ex, r.bucket, 404, "NoSuchKey", "The specified key does not exist.", {{"Key", r.key}});
}

// Answers the error and returns false when the tags break the service's limits.
bool tagsFit(OssRequest& r, const Tags& tags) {
    std::set<std::string> seen;
    for (const auto& [key, value] : tags) {
        if (key.empty() || key.size() > kMaxTagKey || value.size() > kMaxTagValue || !validUtf8(key) ||
            !validUtf8(value) || !seen.insert(key).second) {
            ossError(r.ex, r.bucket, 400, "InvalidTag", "The tag provided was not a valid tag.", {{"Key", key}});
            return false;
        }
    }
    if (tags.size() <= kMaxTags) return true;
    ossError(r.ex, r.bucket, 400, "BadRequest", "Object tags cannot be greater than 10.");
    return false;
}

std::optional<Tags> parseTagging(const std::string& body) {
    pugi::xml_document doc;
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default | pugi::parse_ws_pcdata_single))
        return std::nullopt;
    auto set = doc.child("Tagging").child("TagSet");
    if (!set) return std::nullopt;
    Tags tags;
    for (auto tag : set.children()) {
        if (std::string_view(tag.name()) != "Tag" || !tag.child("Key")) return std::nullopt;
        tags.emplace_back(tag.child("Key").child_value(), tag.child("Value").child_value());
    }
    return tags;
}

// Answers the outcome of a change to the object's attributes; true when it was made.
bool changed(OssRequest& r, Stored outcome) {
    if (outcome == Stored::NotOpen) return noSuchKey(r), false;
    if (outcome == Stored::Failed) return internalError(r), false;
    return true;
}

}  // namespace

std::optional<std::string> requestedAcl(OssRequest& r) {
    auto value = r.ex.header("x-oss-object-acl");
    if (!value) return "";
    static const std::set<std::string> known = {"default", "private", "public-read", "public-read-write"};
    if (known.count(*value)) return *value;
    ossError(r.ex, r.bucket, 400, "InvalidArgument", "no such object access control exists",
             {{"ArgumentName", "x-oss-object-acl"}, {"ArgumentValue", *value}});
    return std::nullopt;
}

bool taggingHeader(OssRequest& r, Tags& tags) {
    tags.clear();
    // The server library hands the value over percent-decoded already, so pairs split on the raw '&'
    // and '=': a tag whose key or value holds either of them cannot be given this way.
    auto text = r.ex.header("x-oss-tagging").value_or("");
    for (std::size_t start = 0; start < text.size();) {
        auto end = text.find('&', start);
        if (end == std::string::npos) end = text.size();
        auto pair = text.substr(start, end - start);
        auto eq = pair.find('=');
        if (!pair.empty()) tags.emplace_back(pair.substr(0, eq), eq == std::string::npos ? "" : pair.substr(eq + 1));
        start = end + 1;
    }
    return tagsFit(r, tags);
}

void putObjectAcl(OssRequest& r) {
    auto acl = requestedAcl(r);
    if (!acl) return;
    if (acl->empty())
        return ossError(r.ex, r.bucket, 400, "InvalidArgument", "The x-oss-object-acl header is missing.",
                        {{"ArgumentName", "x-oss-object-acl"}, {"ArgumentValue", ""}});
    if (changed(r, r.ex.impl.storage.updateObject(r.bucket, r.key, [&](ObjectInfo& o) { o.acl = *acl; })))
        r.ex.res.status = 200;
}

void getObjectAcl(OssRequest& r) {
    auto found = r.ex.impl.storage.object(r.bucket, r.key);
    if (!found) return noSuchKey(r);
    pugi::xml_document doc;
    auto policy = xmlRoot(doc, "AccessControlPolicy");
    auto owner = policy.append_child("Owner");
    xmlAdd(owner, "ID", kOwnerId);
    xmlAdd(owner, "DisplayName", kOwnerId);
    xmlAdd(policy.append_child("AccessControlList"), "Grant", found->first.acl);
    r.ex.res.status = 200;
    r.ex.res.set_content(xmlText(doc), "application/xml");
}

void putObjectTagging(OssRequest& r) {
    auto& ex = r.ex;
    auto body = ex.readBodyText(64 << 10);
    auto tags = body ? parseTagging(*body) : std::nullopt;
    if (!tags)
        return ossError(ex, r.bucket, 400, "MalformedXML",
                        "The XML you provided was not well-formed or did not validate against our published schema.");
    if (auto md5 = ex.header("Content-MD5"); md5 && foundation::base64Decode(trim(*md5)) != foundation::md5Raw(*body))
        return ossError(ex, r.bucket, 400, "InvalidDigest", "The Content-MD5 you specified is not valid.");
    if (!tagsFit(r, *tags)) return;
    if (changed(r, ex.impl.storage.updateObject(r.bucket, r.key, [&](ObjectInfo& o) { o.tags = *tags; })))
        ex.res.status = 200;
}

void getObjectTagging(OssRequest& r) {
    auto found = r.ex.impl.storage.object(r.bucket, r.key);
    if (!found) return noSuchKey(r);
    pugi::xml_document doc;
    auto set = xmlRoot(doc, "Tagging").append_child("TagSet");
    for (const auto& [key, value] : found->first.tags) {
        auto tag = set.append_child("Tag");
        xmlAdd(tag, "Key", key);
        xmlAdd(tag, "Value", value);
    }
    r.ex.res.status = 200;
    r.ex.res.set_content(xmlText(doc), "application/xml");
}

void deleteObjectTagging(OssRequest& r) {
    if (changed(r, r.ex.impl.storage.updateObject(r.bucket, r.key, [](ObjectInfo& o) { o.tags.clear(); })))
        r.ex.res.status = 204;
}

}  // namespace quorvane::emulator
