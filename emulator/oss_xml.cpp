#include "emulator/oss_xml.h"

#include <pugixml.hpp>

#include <charconv>
#include <sstream>

namespace quorvane::emulator {
namespace {

pugi::xml_node root(pugi::xml_document& doc, const char* name) {
    auto decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    return doc.append_child(name);
}

void add(pugi::xml_node parent, const char* name, const std::string& text) {
    parent.append_child(name).text().set(text.c_str());
}

std::string toText(const pugi::xml_document& doc) {
    std::ostringstream out;
    doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

std::string stripQuotes(std::string s) {
    s = trim(s);
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
    // Some clients send the entity form of the quotes.
    if (startsWith(s, "&quot;") && endsWith(s, "&quot;") && s.size() >= 12) s = s.substr(6, s.size() - 12);
    return s;
}

}  // namespace

std::string errorXml(const std::string& code, const std::string& message, const std::string& requestId,
                     const std::string& hostId, const Pairs& extra) {
    pugi::xml_document doc;
    auto error = root(doc, "Error");
    add(error, "Code", code);
    add(error, "Message", message);
    add(error, "RequestId", requestId);
    add(error, "HostId", hostId);
    for (const auto& [name, value] : extra) add(error, name.c_str(), value);
    return toText(doc);
}

std::string initiateResultXml(const std::string& bucket, const std::string& key, const std::string& uploadId) {
    pugi::xml_document doc;
    auto result = root(doc, "InitiateMultipartUploadResult");
    add(result, "Bucket", bucket);
    add(result, "Key", key);
    add(result, "UploadId", uploadId);
    return toText(doc);
}

std::string listPartsXml(const ListPartsPage& page) {
    pugi::xml_document doc;
    auto result = root(doc, "ListPartsResult");
    add(result, "Bucket", page.bucket);
    add(result, "Key", page.key);
    add(result, "UploadId", page.uploadId);
    add(result, "PartNumberMarker", std::to_string(page.marker));
    add(result, "NextPartNumberMarker", std::to_string(page.nextMarker));
    add(result, "MaxParts", std::to_string(page.maxParts));
    add(result, "IsTruncated", page.truncated ? "true" : "false");
    add(result, "StorageClass", "Standard");
    for (const auto& p : page.parts) {
        auto part = result.append_child("Part");
        add(part, "PartNumber", std::to_string(p.number));
        add(part, "LastModified", p.lastModified);
        add(part, "ETag", p.etag);
        add(part, "Size", std::to_string(p.size));
        add(part, "HashCrc64ecma", std::to_string(p.crc64));
    }
    return toText(doc);
}

std::string completeResultXml(const std::string& location, const std::string& bucket, const std::string& key,
                              const std::string& etag) {
    pugi::xml_document doc;
    auto result = root(doc, "CompleteMultipartUploadResult");
    add(result, "Location", location);
    add(result, "Bucket", bucket);
    add(result, "Key", key);
    add(result, "ETag", etag);
    return toText(doc);
}

std::optional<std::vector<CompletePart>> parseCompleteBody(const std::string& body) {
    pugi::xml_document doc;
    if (!doc.load_buffer(body.data(), body.size())) return std::nullopt;
    auto top = doc.child("CompleteMultipartUpload");
    if (!top) return std::nullopt;
    std::vector<CompletePart> parts;
    for (auto node : top.children()) {
        if (std::string_view(node.name()) != "Part") return std::nullopt;
        auto numberText = trim(node.child_value("PartNumber"));
        CompletePart part;
        auto [end, ec] = std::from_chars(numberText.data(), numberText.data() + numberText.size(), part.number);
        if (ec != std::errc() || end != numberText.data() + numberText.size() || !node.child("ETag"))
            return std::nullopt;
        part.etag = stripQuotes(node.child_value("ETag"));
        parts.push_back(part);
    }
    if (parts.empty()) return std::nullopt;
    return parts;
}

}  // namespace quorvane::emulator
