// ListMultipartUploads: one page of the uploads a bucket holds that were neither completed nor aborted.
#include <pugixml.hpp>

#include "oss/oss_operation_steps.h"

namespace quorvane::oss {
namespace {

std::optional<OSSListMultipartUploadsResult> parsePage(std::string_view body) {
    pugi::xml_document doc;
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8)) return std::nullopt;
    auto root = doc.child("ListMultipartUploadsResult");
    if (!root) return std::nullopt;
    OSSListMultipartUploadsResult page;
    page.isTruncated = std::string_view(root.child_value("IsTruncated")) == "true";
    page.nextKeyMarker = root.child_value("NextKeyMarker");
    page.nextUploadIdMarker = root.child_value("NextUploadIdMarker");
    for (auto node : root.children("Upload")) {
        OSSMultipartUploadSummary upload{node.child_value("Key"), node.child_value("UploadId"), node.child_value("Initiated")};
        if (upload.key.empty() || upload.uploadId.empty()) return std::nullopt;
        page.uploads.push_back(std::move(upload));
    }
    return page;
}

}  // namespace

void startListMultipartUploads(const OSSOperationContext& context, const OSSListMultipartUploadsRequest& r,
                               OSSDone<OSSListMultipartUploadsResult> done) {
    using Out = OSSOutcome<OSSListMultipartUploadsResult>;
    if (auto bad = checkBucket<OSSListMultipartUploadsResult>(r.bucketName)) return done(*bad);
    OSSQuery query{{"uploads", std::nullopt}};
    if (!r.prefix.empty()) query.emplace_back("prefix", r.prefix);
    if (!r.keyMarker.empty()) query.emplace_back("key-marker", r.keyMarker);
    if (!r.uploadIdMarker.empty()) query.emplace_back("upload-id-marker", r.uploadIdMarker);
    if (r.maxUploads > 0) query.emplace_back("max-uploads", std::to_string(r.maxUploads));
    OSSHttpCall call{"GET", r.bucketName, "", std::move(query), {}, nullptr, nullptr};
    const auto before = std::make_pair(r.keyMarker, r.uploadIdMarker);
    exchange<OSSListMultipartUploadsResult>(context, std::move(call), std::move(done),
                                            [before](const foundation::HttpResponse& answer) {
        auto page = parsePage(answer.body);
        if (!page)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The list of uploads could not be read"));
        if (page->isTruncated && std::make_pair(page->nextKeyMarker, page->nextUploadIdMarker) <= before)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The list of uploads does not advance"));
        auto result = std::make_shared<OSSListMultipartUploadsResult>(std::move(*page));
        fillResult(*result, answer);
        return Out{result, std::nullopt};
    });
}

}  // namespace quorvane::oss
