// Object storage: deleting objects, one (DeleteObject) or many in one request (DeleteMultipleObjects).
#include <pugixml.hpp>

#include "emulator/oss_service.h"
#include "emulator/oss_xml_build.h"

namespace quorvane::emulator {
namespace {

constexpr std::size_t kMaxObjects = 1000;
constexpr std::size_t kMaxBody = 2 << 20;  // 1000 keys of 1023 bytes with their markup fit

void malformed(OssRequest& r) {
    ossError(r.ex, r.bucket, 400, "MalformedXML",
             "The XML you provided was not well-formed or did not validate against our published schema.");
}

struct DeleteRequest {
    bool quiet = false;
    std::vector<std::string> keys;
};

std::optional<DeleteRequest> parseDelete(const std::string& body) {
    pugi::xml_document doc;
    // A key of blanks only is still a key.
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default | pugi::parse_ws_pcdata_single))
        return std::nullopt;
    auto top = doc.child("Delete");
    if (!top) return std::nullopt;
    DeleteRequest request;
    for (auto node : top.children()) {
        std::string_view name = node.name();
        if (name == "Quiet") {
            auto value = toLower(trim(node.child_value()));
            if (value != "true" && value != "false") return std::nullopt;
            request.quiet = value == "true";
        } else if (name == "Object") {
            if (!node.child("Key")) return std::nullopt;
            request.keys.emplace_back(node.child("Key").child_value());
        } else {
            return std::nullopt;
        }
    }
    if (request.keys.empty() || request.keys.size() > kMaxObjects) return std::nullopt;
    return request;
}

}  // namespace

void deleteObject(OssRequest& r) {
    if (r.ex.impl.storage.deleteObject(r.bucket, r.key) == Stored::Failed)
        return ossError(r.ex, r.bucket, 500, "InternalError", "We encountered an internal error. Please try again.");
    r.ex.res.status = 204;
}

void deleteMultipleObjects(OssRequest& r) {
    auto& ex = r.ex;
    auto encoded = keyEncoding(r);
    if (!encoded) return;
    // The body is checked whole before anything is deleted.
    auto md5 = ex.header("Content-MD5");
    if (!md5)
        return ossError(ex, r.bucket, 400, "MissingArgument", "Missing required header for this request: Content-MD5.",
                        {{"ArgumentName", "Content-MD5"}});
    auto body = ex.readBodyText(kMaxBody);
    if (!body) return malformed(r);
    if (foundation::base64Decode(trim(*md5)) != foundation::md5Raw(*body))
        return ossError(ex, r.bucket, 400, "InvalidDigest", "The Content-MD5 you specified is not valid.");
    auto request = parseDelete(*body);
    if (!request) return malformed(r);
    for (const auto& key : request->keys)
        if (!validObjectName(key))
            return ossError(ex, r.bucket, 400, "InvalidObjectName", "The specified object is not valid.",
                            {{"Key", keyText(key, true)}});

    pugi::xml_document doc;
    auto result = xmlRoot(doc, "DeleteResult");
    if (*encoded) xmlAdd(result, "EncodingType", "url");
    bool failures = false;
    for (const auto& key : request->keys) {
        if (ex.impl.storage.deleteObject(r.bucket, key) == Stored::Ok) {
            if (!request->quiet) xmlAdd(result.append_child("Deleted"), "Key", keyText(key, *encoded));
            continue;
        }
        failures = true;
        auto error = result.append_child("Error");
        xmlAdd(error, "Key", keyText(key, *encoded));
        xmlAdd(error, "Code", "InternalError");
        xmlAdd(error, "Message", "We encountered an internal error. Please try again.");
    }
    ex.res.status = 200;
    // Quiet mode answers only the keys that could not be deleted: nothing at all when every one was.
    if (request->quiet && !failures) return;
    ex.res.set_content(xmlText(doc), "application/xml");
}

}  // namespace quorvane::emulator
