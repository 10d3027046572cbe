#include "VODUpload/src/VODUploadErrorClass.h"

#include "foundation/value.h"

namespace quorvane {
namespace {

// The object-storage client's own codes; a server's answer comes as its status negated.
constexpr int kCancelledCode = 5;
constexpr int kNetworkErrorCode = 6;

}  // namespace

bool isCancellation(const Error& error) { return error.code == kCancelledCode; }

UploadErrorClass classify(const Error& error, VODClientState state) {
    if (error.code == -403) {
        auto code = foundation::stringAt(error.userInfo, "Code");
        return code && (*code == "InvalidAccessKeyId" || *code == "SecurityTokenExpired")
                   ? UploadErrorClass::CredentialsExpired
                   : UploadErrorClass::Fail;
    }
    if (error.code == kNetworkErrorCode) return UploadErrorClass::Retry;
    if (isCancellation(error))
        return state == VODClientState::Stopped || state == VODClientState::Paused ? UploadErrorClass::StoppedOrPaused
                                                                                   : UploadErrorClass::Cancelled;
    if (error.code < -500) return UploadErrorClass::Retry;  // -500 itself is a failure
    return UploadErrorClass::Fail;
}

}  // namespace quorvane
