#include "oss/oss_xml.h"

#include <charconv>
#include <sstream>

#include <pugixml.hpp>

namespace quorvane::oss::xml {
namespace {

std::optional<pugi::xml_node> loadRoot(pugi::xml_document& doc, std::string_view body, const char* rootName) {
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8)) return std::nullopt;
    auto root = doc.child(rootName);
    if (!root) return std::nullopt;
    return root;
}

template <class Int>
std::optional<Int> parseInt(std::string_view text) {
    Int v{};
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return v;
}

std::optional<OSSPartInfo> parsePart(const pugi::xml_node& node) {
    OSSPartInfo part;
    auto number = parseInt<int>(node.child_value("PartNumber"));
    auto size = parseInt<std::int64_t>(node.child_value("Size"));
    if (!number || !size) return std::nullopt;
    part.partNum = *number;
    part.size = *size;
    part.eTag = node.child_value("ETag");
    if (auto crcNode = node.child("HashCrc64ecma")) {
        auto crc = parseInt<std::uint64_t>(crcNode.child_value());
        if (!crc) return std::nullopt;
        part.crc64 = *crc;
    }
    return part;
}

}  // namespace

std::optional<Value> parseErrorDocument(std::string_view body) {
    pugi::xml_document doc;
    auto root = loadRoot(doc, body, "Error");
    if (!root) return std::nullopt;
    Value details = Value::object();
    for (auto child : root->children())
        if (child.type() == pugi::node_element) details[child.name()] = child.child_value();
    return details;
}

std::optional<std::string> parseInitiateMultipartUpload(std::string_view body) {
    pugi::xml_document doc;
    auto root = loadRoot(doc, body, "InitiateMultipartUploadResult");
    if (!root) return std::nullopt;
    std::string id = root->child_value("UploadId");
    if (id.empty()) return std::nullopt;
    return id;
}

std::optional<ListPartsPage> parseListParts(std::string_view body) {
    pugi::xml_document doc;
    auto root = loadRoot(doc, body, "ListPartsResult");
    if (!root) return std::nullopt;
    ListPartsPage page;
    page.isTruncated = std::string_view(root->child_value("IsTruncated")) == "true";
    if (auto marker = parseInt<int>(root->child_value("NextPartNumberMarker"))) page.nextPartNumberMarker = *marker;
    for (auto node : root->children("Part")) {
        auto part = parsePart(node);
        if (!part) return std::nullopt;
        page.parts.push_back(*part);
    }
    return page;
}

std::optional<CompleteResult> parseCompleteMultipartUpload(std::string_view body) {
    pugi::xml_document doc;
    auto root = loadRoot(doc, body, "CompleteMultipartUploadResult");
    if (!root) return std::nullopt;
    return CompleteResult{root->child_value("Location"), root->child_value("Bucket"), root->child_value("Key"),
                          root->child_value("ETag")};
}

std::string buildCompleteMultipartUpload(const std::vector<OSSPartInfo>& parts) {
    pugi::xml_document doc;
    auto decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    auto root = doc.append_child("CompleteMultipartUpload");
    for (const auto& p : parts) {
        auto node = root.append_child("Part");
        node.append_child("PartNumber").text().set(p.partNum);
        node.append_child("ETag").text().set(p.eTag.c_str());
    }
    std::ostringstream out;
    doc.save(out, "", pugi::format_raw);
    return out.str();
}

}  // namespace quorvane::oss::xml
