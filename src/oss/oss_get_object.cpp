// GetObject: the object's bytes, whole or one range, checked against the CRC-64 the service answers
// when the whole object comes back.
#include <charconv>

#include "oss/crc64.h"
#include "oss/oss_body.h"
#include "oss/oss_operation_steps.h"

namespace quorvane::oss {
namespace {

std::optional<std::uint64_t> parseSize(std::string_view text) {
    std::uint64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
    return value;
}

// "bytes 0-99/1000" -> 1000.
std::optional<std::uint64_t> totalOfContentRange(const std::string& text) {
    auto slash = text.rfind('/');
    if (slash == std::string::npos) return std::nullopt;
    return parseSize(std::string_view(text).substr(slash + 1));
}

}  // namespace

void startGetObject(const OSSOperationContext& context, const OSSGetObjectRequest& r, OSSDone<OSSGetObjectResult> done) {
    using Out = OSSOutcome<OSSGetObjectResult>;
    if (auto bad = checkTarget<OSSGetObjectResult>(r.bucketName, r.objectKey)) return done(*bad);
    if (r.range && r.range->first > r.range->second)
        return done(invalidRequest<OSSGetObjectResult>("The range's first byte is after its last"));
    OSSHttpCall call{"GET", r.bucketName, r.objectKey, {}, {}, nullptr, nullptr};
    if (r.range)
        call.headers.emplace_back("Range", "bytes=" + std::to_string(r.range->first) + "-" +
                                               std::to_string(r.range->second));
    const auto range = r.range;
    exchange<OSSGetObjectResult>(context, std::move(call), std::move(done), [range](const foundation::HttpResponse& answer) {
        auto result = std::make_shared<OSSGetObjectResult>();
        fillResult(*result, answer);
        result->eTag = answer.header("ETag").value_or("");
        result->lastModified = answer.header("Last-Modified").value_or("");
        const bool partial = answer.status == 206;
        std::optional<std::uint64_t> total =
            partial ? totalOfContentRange(answer.header("Content-Range").value_or("")) : answer.body.size();
        if (!total)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The answer to a range has no usable Content-Range"));
        if (range && partial && answer.body.size() != std::min(range->second + 1, *total) - range->first)
            return Out::failure(makeClientError(OSSClientErrorCodeNetworkError,
                                                "The range came back short: " + std::to_string(answer.body.size()) + " bytes"));
        result->objectSize = *total;
        result->localCRC64ecma = Crc64::update(0, answer.body.data(), answer.body.size());
        // The service's CRC covers the whole object: only a whole answer can be checked against it.
        if (!partial)
            if (auto bad = checkCrc("object", *result->localCRC64ecma, result->remoteCRC64ecma))
                return Out::failure(*bad);
        result->data = answer.body;
        return Out{result, std::nullopt};
    });
}

}  // namespace quorvane::oss
