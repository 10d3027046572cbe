#include "emulator/oss_xml.h"
#include "emulator/oss_xml_build.h"

#include <pugixml.hpp>

#include <charconv>
#include <sstream>

namespace quorvane::emulator {
namespace {

std::string stripQuotes(std::string s) {
    s = trim(s);
    if (s.size() >= 2 && s.front() == '"' && s.back() == '"') s = s.substr(1, s.size() - 2);
    // Some clients send the entity form of the quotes.
    if (startsWith(s, "&quot;") && endsWith(s, "&quot;") && s.size() >= 12) s = s.substr(6, s.size() - 12);
    return s;
}

}  // namespace

pugi::xml_node xmlRoot(pugi::xml_document& doc, const char* name) {
    auto decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    return doc.append_child(name);
}

void xmlAdd(pugi::xml_node parent, const char* name, const std::string& text) {
    parent.append_child(name).text().set(text.c_str());
}

std::string xmlText(const pugi::xml_document& doc) {
    std::ostringstream out;
    doc.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

std::string errorXml(const std::string& code, const std::string& message, const std::string& requestId,
                     const std::string& hostId, const Pairs& extra) {
    pugi::xml_document doc;
    auto error = xmlRoot(doc, "Error");
    xmlAdd(error, "Code", code);
    xmlAdd(error, "Message", message);
    xmlAdd(error, "RequestId", requestId);
    xmlAdd(error, "HostId", hostId);
    for (const auto& [name, value] : extra) xmlAdd(error, name.c_str(), value);
    return xmlText(doc);
}

std::string initiateResultXml(const std::string& bucket, const std::string& key, const std::string& uploadId) {
    pugi::xml_document doc;
    auto result = xmlRoot(doc, "InitiateMultipartUploadResult");
    xmlAdd(result, "Bucket", bucket);
    xmlAdd(result, "Key", key);
    xmlAdd(result, "UploadId", uploadId);
    return xmlText(doc);
}

std::string listPartsXml(const ListPartsPage& page) {
    pugi::xml_document doc;
    auto result = xmlRoot(doc, "ListPartsResult");
    xmlAdd(result, "Bucket", page.bucket);
    xmlAdd(result, "Key", page.key);
    xmlAdd(result, "UploadId", page.uploadId);
    xmlAdd(result, "PartNumberMarker", std::to_string(page.marker));
    xmlAdd(result, "NextPartNumberMarker", std::to_string(page.nextMarker));
    xmlAdd(result, "MaxParts", std::to_string(page.maxParts));
    xmlAdd(result, "IsTruncated", page.truncated ? "true" : "false");
    xmlAdd(result, "StorageClass", "Standard");
    for (const auto& p : page.parts) {
        auto part = result.append_child("Part");
        xmlAdd(part, "PartNumber", std::to_string(p.number));
        xmlAdd(part, "LastModified", p.lastModified);
        xmlAdd(part, "ETag", p.etag);
        xmlAdd(part, "Size", std::to_string(p.size));
        if (page.withCrc64) xmlAdd(part, "HashCrc64ecma", std::to_string(p.crc64));
    }
    return xmlText(doc);
}

std::string completeResultXml(const std::string& location, const std::string& bucket, const std::string& key,
                              const std::string& etag) {
    pugi::xml_document doc;
    auto result = xmlRoot(doc, "CompleteMultipartUploadResult");
    xmlAdd(result, "Location", location);
    xmlAdd(result, "Bucket", bucket);
    xmlAdd(result, "Key", key);
    xmlAdd(result, "ETag", etag);
    return xmlText(doc);
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
