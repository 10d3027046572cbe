#include "oss/oss_error.h"

#include <curl/curl.h>

#include "oss/oss_xml.h"

namespace quorvane::oss {
namespace {

// The peer's certificate (or our trust store) was refused: sending again cannot change that, so it is
// not a network error to retry but a failure to report at once.
bool isCertificateError(long long curlCode) {
    switch (curlCode) {
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return true;
    default:
        return false;
    }
}

}  // namespace

Error makeClientError(OSSClientErrorCode code, const std::string& message) {
    Value details = Value::object();
    details["ErrorMessage"] = message;
    return Error(kOSSClientErrorDomain, code, message, std::move(details));
}

Error makeServerError(const foundation::HttpResponse& response) {
    Value details = xml::parseErrorDocument(response.body).value_or(Value::object());
    if (!details.contains("RequestId")) {
        if (auto id = response.header("x-oss-request-id")) details["RequestId"] = *id;
    }
    std::string description = "HTTP " + std::to_string(response.status);
    if (auto code = foundation::stringAt(details, "Code")) description += " " + *code;
    if (auto message = foundation::stringAt(details, "Message")) description += ": " + *message;
    return Error(kOSSServerErrorDomain, -static_cast<long long>(response.status), description, std::move(details));
}

Error fromTransportError(const Error& transport) {
    if (transport.domain == foundation::kHttpErrorDomain) {
        if (transport.code == foundation::kHttpErrorCancelled)
            return makeClientError(OSSClientErrorCodeTaskCancelled, "This task has been cancelled!");
        if (transport.code == foundation::kHttpErrorBadRequest)
            return makeClientError(OSSClientErrorCodeInvalidArgument, transport.description);
        if (isCertificateError(transport.code))
            return makeClientError(OSSClientErrorCodeNetworkingFailWithResponseCode0,
                                   "The server's TLS certificate was not accepted: " + transport.toString());
    }
    return makeClientError(OSSClientErrorCodeNetworkError, "Network error: " + transport.toString());
}

Error makeCancelledError() {
    return fromTransportError(Error(foundation::kHttpErrorDomain, foundation::kHttpErrorCancelled));
}

bool isCancelledError(const Error& error) {
    return error.domain == kOSSClientErrorDomain && error.code == OSSClientErrorCodeTaskCancelled;
}

std::string retryCause(const Error& error) {
    if (error.domain != kOSSServerErrorDomain) return error.description.empty() ? error.toString() : error.description;
    std::string cause = "HTTP " + std::to_string(-error.code);
    if (auto code = foundation::stringAt(error.userInfo, "Code")) cause += " " + *code;
    return cause;
}

bool isRetryableError(const Error& error) {
    if (error.domain == kOSSClientErrorDomain) return error.code == OSSClientErrorCodeNetworkError;
    if (error.domain == kOSSServerErrorDomain) return error.code <= -500;
    return false;
}

}  // namespace quorvane::oss
