#pragma once
// Errors of the object-storage client. Two domains:
//  - client errors (kOSSClientErrorDomain) with the codes of OSSClientErrorCode, details
//    {"ErrorMessage": text};
//  - server errors (kOSSServerErrorDomain) whose code is the negated HTTP status (403 -> -403) and
//    whose details are the service's XML error document flattened: "Code", "Message",
//    "RequestId", "HostId", ... (a HEAD error has no body: "Code" is then absent).
// A signer block's own error is passed through unchanged.
#include <string>

#include "foundation/error.h"
#include "foundation/http_client.h"

namespace quorvane::oss {

inline constexpr const char* kOSSClientErrorDomain = "com.aliyun.oss.clientError";
inline constexpr const char* kOSSServerErrorDomain = "com.aliyun.oss.serverError";

enum OSSClientErrorCode : long long {
    OSSClientErrorCodeNetworkingFailWithResponseCode0 = 0,
    OSSClientErrorCodeSignFailed = 1,
    OSSClientErrorCodeFileCantWrite = 2,
    OSSClientErrorCodeInvalidArgument = 3,
    OSSClientErrorCodeNilUploadid = 4,
    OSSClientErrorCodeTaskCancelled = 5,
    OSSClientErrorCodeNetworkError = 6,
    OSSClientErrorCodeInvalidCRC = 7,
    OSSClientErrorCodeCannotResumeUpload = 8,
    OSSClientErrorCodeExceptionCaught = 9,
    OSSClientErrorCodeNotKnown = 10,
    OSSClientErrorCodeFileCantRead = 11,
};

// Client error with the message in description and in details "ErrorMessage".
Error makeClientError(OSSClientErrorCode code, const std::string& message);
// Server error from an HTTP answer of status >= 300 (the body may be empty or not XML).
Error makeServerError(const foundation::HttpResponse& response);
// A transport error of the HTTP client mapped onto 5 (cancelled), 3 (bad request) or 6 (network).
Error fromTransportError(const Error& transport);

// The error of an operation ended by its cancellation token (code 5).
Error makeCancelledError();
bool isCancelledError(const Error& error);
// Worth another attempt: a network error or a 5xx answer.
bool isRetryableError(const Error& error);
// Why an attempt failed, in a few words for a progress line: "HTTP 503 ServiceUnavailable", or the
// client error's own text.
std::string retryCause(const Error& error);

}  // namespace quorvane::oss
