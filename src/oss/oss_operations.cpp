// The single-request operations: each is one exchange (with its retries), its answer read on the
// operation's queue.
#include <charconv>

#include "oss/oss_body.h"
#include "oss/oss_client_impl.h"
#include "oss/oss_operation_steps.h"
#include "oss/oss_progress.h"
#include "oss/oss_xml.h"

namespace quorvane::oss {
namespace {

template <class T>
std::optional<OSSOutcome<T>> checkUploadId(const std::string& uploadId) {
    if (uploadId.empty()) return OSSOutcome<T>::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The upload id is empty"));
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

// A body from memory, or from a range of a file (nullopt data means the file). With `checked`, the file
// is looked at again before its last bytes go (FileStateCheckedBody), against `expected`.
std::shared_ptr<Crc64BodySource> makeBody(const std::optional<std::string>& data, const std::string& path,
                                          std::uint64_t offset, std::uint64_t length, Error* error,
                                          const OSSFileState* expected = nullptr,
                                          std::shared_ptr<FileStateCheckedBody>* checked = nullptr) {
    if (data) return std::make_shared<Crc64BodySource>(foundation::makeStringBody(*data));
    Error openError;
    std::shared_ptr<foundation::BodySource> inner = foundation::makeFileBody(path, offset, length, &openError);
    if (!inner) {
        *error = makeClientError(OSSClientErrorCodeFileCantRead, "Can't read the file " + path + ": " +
                                                                     openError.description);
        return nullptr;
    }
    if (expected && checked) inner = *checked = std::make_shared<FileStateCheckedBody>(inner, path, *expected);
    return std::make_shared<Crc64BodySource>(std::move(inner));
}

// A body's upload: progress while it is sent, and the checks after.
template <class T>
void sendBody(const OSSOperationContext& context, OSSHttpCall call, std::shared_ptr<Crc64BodySource> body,
              const char* what, OSSNetworkingUploadProgressBlock progressBlock, OSSDone<T> done) {
    auto progress = std::make_shared<OSSProgressTracker>(std::move(progressBlock), body->size());
    call.body = body;
    call.onUploadProgress = [progress](std::uint64_t sent, std::uint64_t) { progress->update(0, sent); };
    exchange<T>(context, std::move(call), std::move(done), [body, what, progress](const foundation::HttpResponse& answer) {
        if (auto bad = checkSentBody(what, *body, answer)) return OSSOutcome<T>::failure(*bad);
        progress->finish(0, body->size());
        auto result = std::make_shared<T>();
        fillResult(*result, answer);
        result->localCRC64ecma = body->crc64();
        result->eTag = answer.header("ETag").value_or("");
        return OSSOutcome<T>{result, std::nullopt};
    });
}

}  // namespace

void startPutObject(const OSSOperationContext& context, const OSSPutObjectRequest& r, OSSDone<OSSPutObjectResult> done) {
    using Out = OSSOutcome<OSSPutObjectResult>;
    if (auto bad = checkTarget<OSSPutObjectResult>(r.bucketName, r.objectKey)) return done(*bad);
    Error error;
    std::string path;
    std::uint64_t size = r.uploadingData ? r.uploadingData->size() : 0;
    std::optional<OSSLocalFile> file;
    if (!r.uploadingData) {
        file = inspectLocalFile(r.uploadingFileURL, &error, r.expectedFileState ? &*r.expectedFileState : nullptr);
        if (!file) return done(Out::failure(error));
        path = file->path;
        size = file->size;
    }
    if (file && r.expectedFileState && *r.expectedFileState != file->state())
        return done(Out::failure(fileChangedError(path)));
    std::shared_ptr<FileStateCheckedBody> checked;
    auto body = makeBody(r.uploadingData, path, 0, size, &error, r.expectedFileState ? &*r.expectedFileState : nullptr,
                         &checked);
    if (!body) return done(Out::failure(error));
    if (checked)  // a body cut short because the file changed fails as that, whatever the transport said
        done = [inner = std::move(done), checked, path](Out outcome) {
            if (outcome.error && checked->changed()) return inner(Out::failure(fileChangedError(path)));
            inner(std::move(outcome));
        };
    OSSHttpCall call{"PUT", r.bucketName, r.objectKey, {}, {}, nullptr, nullptr};
    addMeta(call.headers, r.contentType, r.objectMeta);
    sendBody<OSSPutObjectResult>(context, std::move(call), std::move(body), "object", r.uploadProgress, std::move(done));
}

void startInitMultipart(const OSSOperationContext& context, const OSSInitMultipartUploadRequest& r,
                        OSSDone<OSSInitMultipartUploadResult> done) {
    using Out = OSSOutcome<OSSInitMultipartUploadResult>;
    if (auto bad = checkTarget<OSSInitMultipartUploadResult>(r.bucketName, r.objectKey)) return done(*bad);
    OSSHttpCall call{"POST", r.bucketName, r.objectKey, {{"uploads", std::nullopt}}, {}, nullptr, nullptr};
    addMeta(call.headers, r.contentType, r.objectMeta);
    exchange<OSSInitMultipartUploadResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto id = xml::parseInitiateMultipartUpload(answer.body);
        if (!id) return Out::failure(makeClientError(OSSClientErrorCodeNilUploadid, "The service answered no upload id"));
        auto result = std::make_shared<OSSInitMultipartUploadResult>();
        fillResult(*result, answer);
        result->uploadId = *id;
        return Out{result, std::nullopt};
    });
}

void startUploadPart(const OSSOperationContext& context, const OSSUploadPartRequest& r,
                     OSSDone<OSSUploadPartResult> done) {
    using Out = OSSOutcome<OSSUploadPartResult>;
    if (auto bad = checkTarget<OSSUploadPartResult>(r.bucketName, r.objectKey)) return done(*bad);
    if (auto bad = checkUploadId<OSSUploadPartResult>(r.uploadId)) return done(*bad);
    if (r.partNumber < 1 || r.partNumber > 10000) return done(invalidRequest<OSSUploadPartResult>("Part numbers run from 1 to 10000"));
    Error error;
    auto body = makeBody(r.uploadPartData, pathFromFileURL(r.uploadPartFileURL), r.uploadPartFileOffset,
                         r.uploadPartLength, &error);
    if (!body) return done(Out::failure(error));
    OSSHttpCall call{"PUT", r.bucketName, r.objectKey,
                     {{"partNumber", std::to_string(r.partNumber)}, {"uploadId", r.uploadId}}, {}, nullptr, nullptr};
    sendBody<OSSUploadPartResult>(context, std::move(call), std::move(body), "part", r.uploadPartProgress, std::move(done));
}

namespace {

// ListParts pages through a long list, one exchange per page.
struct PartLister : std::enable_shared_from_this<PartLister> {
    OSSOperationContext context;
    OSSListPartsRequest request;
    OSSDone<OSSListPartsResult> done;
    std::shared_ptr<OSSListPartsResult> result = std::make_shared<OSSListPartsResult>();

    void page(int marker) {
        using Out = OSSOutcome<OSSListPartsResult>;
        OSSQuery query{{"uploadId", request.uploadId}};
        if (request.maxParts > 0) query.emplace_back("max-parts", std::to_string(request.maxParts));
        if (marker > 0) query.emplace_back("part-number-marker", std::to_string(marker));
        OSSHttpCall call{"GET", request.bucketName, request.objectKey, query, {}, nullptr, nullptr};
        context.client->execute(context, std::move(call),
                                [self = shared_from_this(), marker](OSSOutcome<foundation::HttpResponse> answer) {
            if (answer.error) return self->done(Out::failure(std::move(*answer.error)));
            auto listed = xml::parseListParts(answer.result->body);
            if (!listed)
                return self->done(Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The part list could not be read")));
            fillResult(*self->result, *answer.result);
            auto& parts = self->result->parts;
            parts.insert(parts.end(), listed->parts.begin(), listed->parts.end());
            if (!listed->isTruncated) return self->done(Out{self->result, std::nullopt});
            if (listed->nextPartNumberMarker <= marker)
                return self->done(Out::failure(makeClientError(OSSClientErrorCodeNotKnown, "The part list does not advance")));
            self->page(listed->nextPartNumberMarker);
        });
    }
};

}  // namespace

void startListParts(const OSSOperationContext& context, const OSSListPartsRequest& r, OSSDone<OSSListPartsResult> done) {
    if (auto bad = checkTarget<OSSListPartsResult>(r.bucketName, r.objectKey)) return done(*bad);
    if (auto bad = checkUploadId<OSSListPartsResult>(r.uploadId)) return done(*bad);
    auto lister = std::make_shared<PartLister>();
    lister->context = context;
    lister->request = r;
    lister->done = std::move(done);
    lister->page(0);
}

void startComplete(const OSSOperationContext& context, const OSSCompleteMultipartUploadRequest& r,
                   OSSDone<OSSCompleteMultipartUploadResult> done) {
    using Out = OSSOutcome<OSSCompleteMultipartUploadResult>;
    if (auto bad = checkTarget<OSSCompleteMultipartUploadResult>(r.bucketName, r.objectKey)) return done(*bad);
    if (auto bad = checkUploadId<OSSCompleteMultipartUploadResult>(r.uploadId)) return done(*bad);
    OSSHttpCall call{"POST", r.bucketName, r.objectKey, {{"uploadId", r.uploadId}}, {},
                     foundation::makeStringBody(xml::buildCompleteMultipartUpload(r.partInfos)), nullptr};
    call.headers.emplace_back("Content-Type", "application/xml");
    for (const auto& [k, v] : r.completeMetaHeader) call.headers.emplace_back(k, v);
    exchange<OSSCompleteMultipartUploadResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto parsed = xml::parseCompleteMultipartUpload(answer.body);
        auto result = std::make_shared<OSSCompleteMultipartUploadResult>();
        fillResult(*result, answer);
        result->eTag = answer.header("ETag").value_or(parsed ? parsed->eTag : "");
        if (parsed) result->location = parsed->location;
        return Out{result, std::nullopt};
    });
}

void startAbort(const OSSOperationContext& context, const OSSAbortMultipartUploadRequest& r,
                OSSDone<OSSAbortMultipartUploadResult> done) {
    using Out = OSSOutcome<OSSAbortMultipartUploadResult>;
    if (auto bad = checkTarget<OSSAbortMultipartUploadResult>(r.bucketName, r.objectKey)) return done(*bad);
    if (auto bad = checkUploadId<OSSAbortMultipartUploadResult>(r.uploadId)) return done(*bad);
    OSSHttpCall call{"DELETE", r.bucketName, r.objectKey, {{"uploadId", r.uploadId}}, {}, nullptr, nullptr};
    exchange<OSSAbortMultipartUploadResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto result = std::make_shared<OSSAbortMultipartUploadResult>();
        fillResult(*result, answer);
        return Out{result, std::nullopt};
    });
}

void startHeadObject(const OSSOperationContext& context, const OSSHeadObjectRequest& r, OSSDone<OSSHeadObjectResult> done) {
    using Out = OSSOutcome<OSSHeadObjectResult>;
    if (auto bad = checkTarget<OSSHeadObjectResult>(r.bucketName, r.objectKey)) return done(*bad);
    OSSHttpCall call{"HEAD", r.bucketName, r.objectKey, {}, {}, nullptr, nullptr};
    exchange<OSSHeadObjectResult>(context, std::move(call), std::move(done), [](const foundation::HttpResponse& answer) {
        auto result = std::make_shared<OSSHeadObjectResult>();
        fillResult(*result, answer);
        result->eTag = answer.header("ETag").value_or("");
        auto length = answer.header("Content-Length").value_or("0");
        std::from_chars(length.data(), length.data() + length.size(), result->contentLength);
        return Out{result, std::nullopt};
    });
}

}  // namespace quorvane::oss
