// The single-request operations, as blocking functions run on the client's workers.
#include <charconv>

#include "oss/oss_body.h"
#include "oss/oss_client_impl.h"
#include "oss/oss_progress.h"
#include "oss/oss_xml.h"

namespace quorvane::oss {
namespace {

template <class T>
OSSOutcome<T> invalid(const std::string& message) {
    return OSSOutcome<T>::failure(makeClientError(OSSClientErrorCodeInvalidArgument, message));
}

template <class T>
std::optional<OSSOutcome<T>> checkTarget(const std::string& bucket, const std::string& key) {
    if (bucket.empty()) return invalid<T>("The bucket name is empty");
    if (key.empty()) return invalid<T>("The object key is empty");
    return std::nullopt;
}

void addMeta(foundation::Headers& headers, const std::string& contentType,
             const std::map<std::string, std::string>& meta) {
    if (!contentType.empty()) headers.emplace_back("Content-Type", contentType);
    for (const auto& [k, v] : meta) headers.emplace_back(k, v);
}

// A body that is checked after sending: every byte went out, and the service stored the same CRC.
std::optional<Error> checkSentBody(const char* what, const Crc64BodySource& body,
                                   const foundation::HttpResponse& response) {
    if (body.bytesRead() != body.size())
        return makeClientError(OSSClientErrorCodeNetworkError,
                               std::string("The ") + what + " was sent short: " + std::to_string(body.bytesRead()) +
                                   " of " + std::to_string(body.size()) + " bytes");
    return checkCrc(what, body.crc64(), parseCrcHeader(response));
}

// A body from memory, or from a range of a file (nullopt path means memory).
std::shared_ptr<Crc64BodySource> makeBody(const std::optional<std::string>& data, const std::string& path,
                                          std::uint64_t offset, std::uint64_t length, Error* error) {
    if (data) return std::make_shared<Crc64BodySource>(foundation::makeStringBody(*data));
    Error openError;
    auto inner = foundation::makeFileBody(path, offset, length, &openError);
    if (!inner) {
        *error = makeClientError(OSSClientErrorCodeFileCantRead, "Can't read the file " + path + ": " +
                                                                     openError.description);
        return nullptr;
    }
    return std::make_shared<Crc64BodySource>(std::move(inner));
}

}  // namespace

OSSOutcome<OSSPutObjectResult> doPutObject(OSSClient::Impl& c, const OSSPutObjectRequest& r,
                                           OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSPutObjectResult>;
    if (auto bad = checkTarget<OSSPutObjectResult>(r.bucketName, r.objectKey)) return *bad;
    Error error;
    std::string path;
    std::uint64_t size = r.uploadingData ? r.uploadingData->size() : 0;
    if (!r.uploadingData) {
        auto file = inspectLocalFile(r.uploadingFileURL, &error);
        if (!file) return Out::failure(error);
        path = file->path;
        size = file->size;
    }
    auto body = makeBody(r.uploadingData, path, 0, size, &error);
    if (!body) return Out::failure(error);
    OSSProgressTracker progress(r.uploadProgress, size);
    OSSHttpCall call{"PUT", r.bucketName, r.objectKey, {}, {}, body,
                     [&progress](std::uint64_t sent, std::uint64_t) { progress.update(0, sent); }};
    addMeta(call.headers, r.contentType, r.objectMeta);
    auto answer = c.execute(std::move(call), token);
    if (answer.error) return Out::failure(*answer.error);
    if (auto bad = checkSentBody("object", *body, *answer.result)) return Out::failure(*bad);
    progress.finish(0, size);
    auto result = std::make_shared<OSSPutObjectResult>();
    fillResult(*result, *answer.result);
    result->localCRC64ecma = body->crc64();
    result->eTag = answer.result->header("ETag").value_or("");
    return Out{result, std::nullopt};
}

OSSOutcome<OSSInitMultipartUploadResult> doInitMultipart(OSSClient::Impl& c, const OSSInitMultipartUploadRequest& r,
                                                          OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSInitMultipartUploadResult>;
    if (auto bad = checkTarget<OSSInitMultipartUploadResult>(r.bucketName, r.objectKey)) return *bad;
    OSSHttpCall call{"POST", r.bucketName, r.objectKey, {{"uploads", std::nullopt}}, {}, nullptr, nullptr};
    addMeta(call.headers, r.contentType, r.objectMeta);
    auto answer = c.execute(std::move(call), token);
    if (answer.error) return Out::failure(*answer.error);
    auto id = xml::parseInitiateMultipartUpload(answer.result->body);
    if (!id) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The service answered no upload id"));
    auto result = std::make_shared<OSSInitMultipartUploadResult>();
    fillResult(*result, *answer.result);
    result->uploadId = *id;
    return Out{result, std::nullopt};
}

OSSOutcome<OSSUploadPartResult> doUploadPart(OSSClient::Impl& c, const OSSUploadPartRequest& r,
                                             OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSUploadPartResult>;
    if (auto bad = checkTarget<OSSUploadPartResult>(r.bucketName, r.objectKey)) return *bad;
    if (r.uploadId.empty()) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The upload id is empty"));
    if (r.partNumber < 1 || r.partNumber > 10000) return invalid<OSSUploadPartResult>("Part numbers run from 1 to 10000");
    Error error;
    auto body = makeBody(r.uploadPartData, pathFromFileURL(r.uploadPartFileURL), r.uploadPartFileOffset,
                         r.uploadPartLength, &error);
    if (!body) return Out::failure(error);
    OSSProgressTracker progress(r.uploadPartProgress, body->size());
    OSSHttpCall call{"PUT", r.bucketName, r.objectKey,
                     {{"partNumber", std::to_string(r.partNumber)}, {"uploadId", r.uploadId}}, {}, body,
                     [&progress](std::uint64_t sent, std::uint64_t) { progress.update(0, sent); }};
    auto answer = c.execute(std::move(call), token);
    if (answer.error) return Out::failure(*answer.error);
    if (auto bad = checkSentBody("part", *body, *answer.result)) return Out::failure(*bad);
    auto result = std::make_shared<OSSUploadPartResult>();
    fillResult(*result, *answer.result);
    result->localCRC64ecma = body->crc64();
    result->eTag = answer.result->header("ETag").value_or("");
    return Out{result, std::nullopt};
}

OSSOutcome<OSSListPartsResult> doListParts(OSSClient::Impl& c, const OSSListPartsRequest& r,
                                           OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSListPartsResult>;
    if (auto bad = checkTarget<OSSListPartsResult>(r.bucketName, r.objectKey)) return *bad;
    if (r.uploadId.empty()) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The upload id is empty"));
    auto result = std::make_shared<OSSListPartsResult>();
    int marker = 0;
    while (true) {
        OSSQuery query{{"uploadId", r.uploadId}};
        if (r.maxParts > 0) query.emplace_back("max-parts", std::to_string(r.maxParts));
        if (marker > 0) query.emplace_back("part-number-marker", std::to_string(marker));
        auto answer = c.execute(OSSHttpCall{"GET", r.bucketName, r.objectKey, query, {}, nullptr, nullptr}, token);
        if (answer.error) return Out::failure(*answer.error);
        auto page = xml::parseListParts(answer.result->body);
        if (!page) return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The part list could not be read"));
        fillResult(*result, *answer.result);
        result->parts.insert(result->parts.end(), page->parts.begin(), page->parts.end());
        if (!page->isTruncated) break;
        if (page->nextPartNumberMarker <= marker)
            return Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The part list does not advance"));
        marker = page->nextPartNumberMarker;
    }
    return Out{result, std::nullopt};
}

OSSOutcome<OSSCompleteMultipartUploadResult> doComplete(OSSClient::Impl& c, const OSSCompleteMultipartUploadRequest& r,
                                                        OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSCompleteMultipartUploadResult>;
    if (auto bad = checkTarget<OSSCompleteMultipartUploadResult>(r.bucketName, r.objectKey)) return *bad;
    if (r.uploadId.empty()) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The upload id is empty"));
    OSSHttpCall call{"POST", r.bucketName, r.objectKey, {{"uploadId", r.uploadId}}, {},
                     foundation::makeStringBody(xml::buildCompleteMultipartUpload(r.partInfos)), nullptr};
    call.headers.emplace_back("Content-Type", "application/xml");
    for (const auto& [k, v] : r.completeMetaHeader) call.headers.emplace_back(k, v);
    auto answer = c.execute(std::move(call), token);
    if (answer.error) return Out::failure(*answer.error);
    auto parsed = xml::parseCompleteMultipartUpload(answer.result->body);
    auto result = std::make_shared<OSSCompleteMultipartUploadResult>();
    fillResult(*result, *answer.result);
    result->eTag = answer.result->header("ETag").value_or(parsed ? parsed->eTag : "");
    if (parsed) result->location = parsed->location;
    return Out{result, std::nullopt};
}

OSSOutcome<OSSAbortMultipartUploadResult> doAbort(OSSClient::Impl& c, const OSSAbortMultipartUploadRequest& r,
                                                  OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSAbortMultipartUploadResult>;
    if (auto bad = checkTarget<OSSAbortMultipartUploadResult>(r.bucketName, r.objectKey)) return *bad;
    if (r.uploadId.empty()) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The upload id is empty"));
    auto answer =
        c.execute(OSSHttpCall{"DELETE", r.bucketName, r.objectKey, {{"uploadId", r.uploadId}}, {}, nullptr, nullptr},
                  token);
    if (answer.error) return Out::failure(*answer.error);
    auto result = std::make_shared<OSSAbortMultipartUploadResult>();
    fillResult(*result, *answer.result);
    return Out{result, std::nullopt};
}

OSSOutcome<OSSHeadObjectResult> doHeadObject(OSSClient::Impl& c, const OSSHeadObjectRequest& r,
                                             OSSCancellationToken& token) {
    using Out = OSSOutcome<OSSHeadObjectResult>;
    if (auto bad = checkTarget<OSSHeadObjectResult>(r.bucketName, r.objectKey)) return *bad;
    auto answer = c.execute(OSSHttpCall{"HEAD", r.bucketName, r.objectKey, {}, {}, nullptr, nullptr}, token);
    if (answer.error) return Out::failure(*answer.error);
    auto result = std::make_shared<OSSHeadObjectResult>();
    fillResult(*result, *answer.result);
    result->eTag = answer.result->header("ETag").value_or("");
    auto length = answer.result->header("Content-Length").value_or("0");
    std::from_chars(length.data(), length.data() + length.size(), result->contentLength);
    return Out{result, std::nullopt};
}

}  // namespace quorvane::oss
