// DeleteObject and DeleteMultipleObjects (a thousand keys a request, the body's MD5 in Content-MD5 as
// the service requires).
#include <pugixml.hpp>

#include <sstream>

#include "foundation/crypto.h"
#include "oss/oss_operation_steps.h"

namespace quorvane::oss {
namespace {

std::string deleteDocument(const std::vector<std::string>& keys, bool quiet) {
    pugi::xml_document doc;
    auto root = doc.append_child("Delete");
    root.append_child("Quiet").text().set(quiet ? "true" : "false");
    for (const auto& key : keys) root.append_child("Object").append_child("Key").text().set(key.c_str());
    std::ostringstream out;
    doc.save(out, "", pugi::format_raw);
    return out.str();
}

std::optional<OSSDeleteMultipleObjectsResult> parseResult(std::string_view body) {
    OSSDeleteMultipleObjectsResult result;
    if (body.empty()) return result;  // quiet, and nothing failed
    pugi::xml_document doc;
    if (!doc.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8)) return std::nullopt;
    auto root = doc.child("DeleteResult");
    if (!root) return std::nullopt;
    for (auto node : root.children("Deleted")) result.deletedKeys.emplace_back(node.child_value("Key"));
    for (auto node : root.children("Error"))
        result.failures.push_back({node.child_value("Key"), node.child_value("Code"), node.child_value("Message")});
    return result;
}

}  // namespace

void startDeleteObject(const OSSOperationContext& context, const OSSDeleteObjectRequest& r,
                       OSSDone<OSSDeleteObjectResult> done) {
    using Out = OSSOutcome<OSSDeleteObjectResult>;
    if (auto bad = checkTarget<OSSDeleteObjectResult>(r.bucketName, r.objectKey)) return done(*bad);
    OSSHttpCall call{"DELETE", r.bucketName, r.objectKey, {}, {}, nullptr, nullptr};
    exchange<OSSDeleteObjectResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto result = std::make_shared<OSSDeleteObjectResult>();
        fillResult(*result, answer);
        return Out{result, std::nullopt};
    });
}

void startDeleteMultipleObjects(const OSSOperationContext& context, const OSSDeleteMultipleObjectsRequest& r,
                                OSSDone<OSSDeleteMultipleObjectsResult> done) {
    using Out = OSSOutcome<OSSDeleteMultipleObjectsResult>;
    if (auto bad = checkBucket<OSSDeleteMultipleObjectsResult>(r.bucketName)) return done(*bad);
    if (r.keys.empty() || r.keys.size() > 1000)
        return done(invalidRequest<OSSDeleteMultipleObjectsResult>("One request deletes 1 to 1000 keys"));
    for (const auto& key : r.keys)
        if (key.empty()) return done(invalidRequest<OSSDeleteMultipleObjectsResult>("The object key is empty"));
    auto document = deleteDocument(r.keys, r.quiet);
    OSSHttpCall call{"POST", r.bucketName, "", {{"delete", std::nullopt}}, {}, nullptr, nullptr};
    call.headers.emplace_back("Content-Type", "application/xml");
    call.headers.emplace_back("Content-MD5", foundation::base64Encode(foundation::md5Raw(document)));
    call.body = foundation::makeStringBody(std::move(document));
    exchange<OSSDeleteMultipleObjectsResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto parsed = parseResult(answer.body);
        if (!parsed)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The answer to a delete could not be read"));
        auto result = std::make_shared<OSSDeleteMultipleObjectsResult>(std::move(*parsed));
        fillResult(*result, answer);
        return Out{result, std::nullopt};
    });
}

}  // namespace quorvane::oss
