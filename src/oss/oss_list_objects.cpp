// ListObjects: one page of a bucket's keys (with their size, ETag and time) and, with a delimiter,
// the "directories" below the prefix.
#include <charconv>

#include <pugixml.hpp>

#include "oss/oss_operation_steps.h"

namespace quorvane::oss {
namespace {

std::optional<OSSListObjectsResult> parsePage(std::string_view body) {
    pugi::xml_document doc;
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8)) return std::nullopt;
    auto root = doc.child("ListBucketResult");
    if (!root) return std::nullopt;
    OSSListObjectsResult page;
    page.isTruncated = std::string_view(root.child_value("IsTruncated")) == "true";
    page.nextMarker = root.child_value("NextMarker");
    for (auto node : root.children("Contents")) {
        OSSObjectSummary object;
        object.key = node.child_value("Key");
        std::string_view size = node.child_value("Size");
        auto [end, ec] = std::from_chars(size.data(), size.data() + size.size(), object.size);
        if (object.key.empty() || ec != std::errc() || end != size.data() + size.size()) return std::nullopt;
        object.eTag = node.child_value("ETag");
        object.lastModified = node.child_value("LastModified");
        object.storageClass = node.child_value("StorageClass");
        page.objects.push_back(std::move(object));
    }
    for (auto node : root.children("CommonPrefixes")) page.commonPrefixes.emplace_back(node.child_value("Prefix"));
    // A truncated page without NextMarker (no delimiter asked for) goes on after its last key.
    if (page.isTruncated && page.nextMarker.empty()) {
        if (!page.objects.empty()) page.nextMarker = page.objects.back().key;
        if (!page.commonPrefixes.empty() && page.commonPrefixes.back() > page.nextMarker)
            page.nextMarker = page.commonPrefixes.back();
    }
    return page;
}

}  // namespace

void startListObjects(const OSSOperationContext& context, const OSSListObjectsRequest& r,
                      OSSDone<OSSListObjectsResult> done) {
    using Out = OSSOutcome<OSSListObjectsResult>;
    if (auto bad = checkBucket<OSSListObjectsResult>(r.bucketName)) return done(*bad);
    if (r.maxKeys < 0 || r.maxKeys > 1000) return done(invalidRequest<OSSListObjectsResult>("max-keys runs from 1 to 1000"));
    OSSQuery query;
    if (!r.prefix.empty()) query.emplace_back("prefix", r.prefix);
    if (!r.delimiter.empty()) query.emplace_back("delimiter", r.delimiter);
    if (!r.marker.empty()) query.emplace_back("marker", r.marker);
    if (r.maxKeys > 0) query.emplace_back("max-keys", std::to_string(r.maxKeys));
    OSSHttpCall call{"GET", r.bucketName, "", std::move(query), {}, nullptr, nullptr};
    const auto marker = r.marker;
    exchange<OSSListObjectsResult>(context, std::move(call), std::move(done), [marker](const foundation::HttpResponse& answer) {
        auto page = parsePage(answer.body);
        if (!page) return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The object list could not be read"));
        if (page->isTruncated && page->nextMarker <= marker)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The object list does not advance"));
        auto result = std::make_shared<OSSListObjectsResult>(std::move(*page));
        fillResult(*result, answer);
        return Out{result, std::nullopt};
    });
}

}  // namespace quorvane::oss
