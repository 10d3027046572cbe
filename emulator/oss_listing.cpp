// Object storage: listing a bucket's objects (v1 and v2) and its open multipart uploads.
#include <algorithm>
#include <charconv>

#include "emulator/oss_service.h"
#include "emulator/oss_xml_build.h"

namespace quorvane::emulator {
namespace {

constexpr std::size_t kMaxNameBytes = 1024;

void invalidArgument(OssRequest& r, const std::string& message, const std::string& name, const std::string& value) {
    ossError(r.ex, r.bucket, 400, "InvalidArgument", message, {{"ArgumentName", name}, {"ArgumentValue", value}});
}

// A count parameter in 1..1000 (default `fallback`); nullopt, with the error answered, otherwise.
std::optional<std::size_t> countParam(OssRequest& r, const char* name, std::size_t fallback) {
    auto text = r.ex.param(name);
    if (!text) return fallback;
    std::size_t value = 0;
    auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (ec == std::errc() && end == text->data() + text->size() && value >= 1 && value <= 1000) return value;
    invalidArgument(r, std::string("Argument ") + name + " must be an integer between 1 and 1000.", name, *text);
    return std::nullopt;
}

// Text parameters (prefix, markers, delimiter) are at most 1024 bytes.
bool namesFit(OssRequest& r, std::initializer_list<const char*> names) {
    for (const char* name : names)
        if (auto value = r.ex.param(name); value && value->size() > kMaxNameBytes)
            return invalidArgument(r, std::string("Argument ") + name + " is too long.", name, *value), false;
    return true;
}

// Continuation tokens are opaque to clients: the last key or common prefix answered, base64url-coded.
std::string encodeToken(const std::string& marker) {
    auto text = foundation::base64Encode(marker);
    while (!text.empty() && text.back() == '=') text.pop_back();
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    return text;
}

std::optional<std::string> decodeToken(std::string token) {
    std::replace(token.begin(), token.end(), '-', '+');
    std::replace(token.begin(), token.end(), '_', '/');
    while (token.size() % 4) token += '=';
    return foundation::base64Decode(token);
}

// Where a delimiter cuts a name below the prefix: the common prefix it falls under, or "" when none.
std::string commonPrefixOf(const std::string& name, const std::string& prefix, const std::string& delimiter) {
    if (delimiter.empty() || !startsWith(name, prefix)) return "";
    auto cut = name.find(delimiter, prefix.size());
    return cut == std::string::npos ? "" : name.substr(0, cut + delimiter.size());
}

// Keys are valid UTF-8, which never holds the byte 0xFF: every key under `p` sorts before this.
std::string pastEverythingUnder(const std::string& p) { return p + '\xff'; }

struct ObjectPage {
    std::vector<ObjectInfo> contents;
    std::vector<std::string> prefixes;
    bool truncated = false;
    std::string last;  // the last key or common prefix answered
};

// One page of a bucket's keys after `after`, with keys that share a common prefix rolled up into it; a
// marker that is itself a common prefix skips that whole group, which the previous page answered.
ObjectPage pageOfObjects(const Storage& storage, const std::string& bucket, const std::string& prefix,
                         const std::string& delimiter, const std::string& after, std::size_t max) {
    ObjectPage page;
    auto cursor = after;
    if (!after.empty() && commonPrefixOf(after, prefix, delimiter) == after) cursor = pastEverythingUnder(after);
    auto full = [&] { return page.contents.size() + page.prefixes.size() == max; };
    for (bool more = true; more && !page.truncated;) {
        auto batch = storage.objectsAfter(bucket, prefix, cursor, 1000);
        more = !batch.empty();
        for (auto& object : batch) {
            if (full()) {
                page.truncated = true;
                break;
            }
            auto group = commonPrefixOf(object.key, prefix, delimiter);
            if (!group.empty()) {
                page.prefixes.push_back(group);
                page.last = group;
                cursor = pastEverythingUnder(group);
                break;  // fetch again past the group
            }
            cursor = page.last = object.key;
            page.contents.push_back(std::move(object));
        }
    }
    return page;
}

void addOwner(pugi::xml_node parent) {
    auto owner = parent.append_child("Owner");
    xmlAdd(owner, "ID", kOwnerId);
    xmlAdd(owner, "DisplayName", kOwnerId);
}

void addObjects(pugi::xml_node result, const ObjectPage& page, bool encoded, bool withOwner) {
    for (const auto& o : page.contents) {
        auto item = result.append_child("Contents");
        xmlAdd(item, "Key", keyText(o.key, encoded));
        xmlAdd(item, "LastModified", o.lastModified);
        xmlAdd(item, "ETag", o.etag);
        xmlAdd(item, "Type", o.partCount > 0 ? "Multipart" : "Normal");
        xmlAdd(item, "Size", std::to_string(o.size));
        xmlAdd(item, "StorageClass", "Standard");
        if (withOwner) addOwner(item);
    }
    for (const auto& p : page.prefixes) xmlAdd(result.append_child("CommonPrefixes"), "Prefix", keyText(p, encoded));
}

void answerXml(Exchange& ex, const pugi::xml_document& doc) {
    ex.res.status = 200;
    ex.res.set_content(xmlText(doc), "application/xml");
}

}  // namespace

std::optional<bool> keyEncoding(OssRequest& r) {
    auto value = r.ex.param("encoding-type");
    if (!value) value = r.ex.header("Encoding-type");
    if (!value || value->empty()) return false;
    if (iequals(*value, "url")) return true;
    invalidArgument(r, "The encoding-type argument is not valid: only url is supported.", "encoding-type", *value);
    return std::nullopt;
}

std::string keyText(const std::string& text, bool urlEncoded) { return urlEncoded ? percentEncode(text) : text; }

void listObjects(OssRequest& r) {
    auto& ex = r.ex;
    bool v2 = ex.param("list-type") == "2";
    auto encoded = keyEncoding(r);
    auto max = countParam(r, "max-keys", 100);
    if (!encoded || !max || !namesFit(r, {"prefix", "marker", "delimiter", "start-after"})) return;
    auto prefix = ex.param("prefix").value_or("");
    auto delimiter = ex.param("delimiter").value_or("");
    std::string after = ex.param(v2 ? "start-after" : "marker").value_or("");
    auto token = v2 ? ex.param("continuation-token") : std::nullopt;
    if (token) {
        auto decoded = decodeToken(*token);
        if (!decoded || token->empty())
            return invalidArgument(r, "The continuation token provided is incorrect.", "continuation-token", *token);
        after = std::max(after, *decoded);
    }
    auto page = pageOfObjects(ex.impl.storage, r.bucket, prefix, delimiter, after, *max);

    pugi::xml_document doc;
    auto result = xmlRoot(doc, "ListBucketResult");
    xmlAdd(result, "Name", r.bucket);
    xmlAdd(result, "Prefix", keyText(prefix, *encoded));
    if (!v2) xmlAdd(result, "Marker", keyText(after, *encoded));
    if (auto startAfter = ex.param("start-after"); v2 && startAfter)
        xmlAdd(result, "StartAfter", keyText(*startAfter, *encoded));
    if (token) xmlAdd(result, "ContinuationToken", *token);
    xmlAdd(result, "MaxKeys", std::to_string(*max));
    xmlAdd(result, "Delimiter", keyText(delimiter, *encoded));
    if (*encoded) xmlAdd(result, "EncodingType", "url");
    xmlAdd(result, "IsTruncated", page.truncated ? "true" : "false");
    if (page.truncated) {
        if (v2) xmlAdd(result, "NextContinuationToken", encodeToken(page.last));
        else xmlAdd(result, "NextMarker", keyText(page.last, *encoded));
    }
    addObjects(result, page, *encoded, !v2 || ex.param("fetch-owner") == "true");
    if (v2) xmlAdd(result, "KeyCount", std::to_string(page.contents.size() + page.prefixes.size()));
    answerXml(ex, doc);
}

void listMultipartUploads(OssRequest& r) {
    auto& ex = r.ex;
    auto encoded = keyEncoding(r);
    auto max = countParam(r, "max-uploads", 1000);
    if (!encoded || !max || !namesFit(r, {"prefix", "key-marker", "delimiter", "upload-id-marker"})) return;
    auto prefix = ex.param("prefix").value_or("");
    auto delimiter = ex.param("delimiter").value_or("");
    auto keyMarker = ex.param("key-marker").value_or("");
    // Without a key marker the upload id marker means nothing.
    auto idMarker = keyMarker.empty() ? "" : ex.param("upload-id-marker").value_or("");

    std::vector<UploadInfo> open;
    for (auto& u : ex.impl.storage.uploads())
        if (u.state == UploadState::Open && u.bucket == r.bucket && startsWith(u.key, prefix)) open.push_back(std::move(u));
    // By key, then the uploads of one key in the order they began.
    auto order = [](const UploadInfo& a, const UploadInfo& b) {
        return std::tie(a.key, a.initiated, a.uploadId) < std::tie(b.key, b.initiated, b.uploadId);
    };
    std::sort(open.begin(), open.end(), order);
    auto marked = std::find_if(open.begin(), open.end(),
                               [&](const UploadInfo& u) { return u.key == keyMarker && u.uploadId == idMarker; });
    auto skipGroup = commonPrefixOf(keyMarker, prefix, delimiter) == keyMarker && !keyMarker.empty();
    auto pastMarker = [&](const UploadInfo& u) {
        if (skipGroup && startsWith(u.key, keyMarker)) return false;
        if (u.key != keyMarker) return u.key > keyMarker;
        if (idMarker.empty()) return false;
        return marked != open.end() ? order(*marked, u) : u.uploadId > idMarker;
    };

    std::vector<const UploadInfo*> uploads;
    std::vector<std::string> prefixes;
    bool truncated = false;
    std::string nextKey, nextId;
    for (const auto& u : open) {
        if (!pastMarker(u)) continue;
        auto group = commonPrefixOf(u.key, prefix, delimiter);
        if (!group.empty() && !prefixes.empty() && prefixes.back() == group) continue;
        if (uploads.size() + prefixes.size() == *max) {
            truncated = true;
            break;
        }
        if (group.empty()) {
            uploads.push_back(&u);
            nextKey = u.key;
            nextId = u.uploadId;
        } else {
            prefixes.push_back(group);
            nextKey = group;
            nextId.clear();
        }
    }

    pugi::xml_document doc;
    auto result = xmlRoot(doc, "ListMultipartUploadsResult");
    xmlAdd(result, "Bucket", r.bucket);
    if (*encoded) xmlAdd(result, "EncodingType", "url");
    xmlAdd(result, "KeyMarker", keyText(keyMarker, *encoded));
    xmlAdd(result, "UploadIdMarker", idMarker);
    xmlAdd(result, "NextKeyMarker", keyText(nextKey, *encoded));
    xmlAdd(result, "NextUploadIdMarker", nextId);
    xmlAdd(result, "Delimiter", keyText(delimiter, *encoded));
    xmlAdd(result, "Prefix", keyText(prefix, *encoded));
    xmlAdd(result, "MaxUploads", std::to_string(*max));
    xmlAdd(result, "IsTruncated", truncated ? "true" : "false");
    for (const auto* u : uploads) {
        auto item = result.append_child("Upload");
        xmlAdd(item, "Key", keyText(u->key, *encoded));
        xmlAdd(item, "UploadId", u->uploadId);
        xmlAdd(item, "Initiated", u->initiated);
    }
    for (const auto& p : prefixes) xmlAdd(result.append_child("CommonPrefixes"), "Prefix", keyText(p, *encoded));
    answerXml(ex, doc);
}

}  // namespace quorvane::emulator
