#pragma once
// What the engine does with an object-storage error: the one classification both upload steps use.
#include "VODUpload/src/VODUploadModel.h"
#include "foundation/error.h"

namespace quorvane {

// The numbers are those shouldRetry has always answered; callers that log or compare them keep working.
enum class UploadErrorClass : int {
    Fail = 0,                // the file fails and the queue waits on it
    Retry = 1,               // a network error or a server error above 500: try the step again
    CredentialsExpired = 2,  // the key was refused as expired or unknown: pause until new credentials
    Cancelled = 3,           // cancelled by something other than stop or pause: the next file
    StoppedOrPaused = 4,     // stop or pause cancelled it: nothing to do
};

// `state` is the client's state when the error arrived: it tells a cancel by stop or pause from another.
UploadErrorClass classify(const Error& error, VODClientState state);
// Whether the request ended because it was cancelled (whoever cancelled it).
bool isCancellation(const Error& error);

}  // namespace quorvane
