// Continuing after new credentials. The queue and upload steps own what happens next; until they
// are wired here the client only takes the credentials and moves to Started.
#include "VODUpload/src/VODUploadClient.h"

namespace quorvane {

void VODUploadClient::continueAfterNewCredentials() {
    // With uploadId set: requestUploadAuthAddress when openApiConfig is present (a refresh, then the
    // same upload), else resumableUpload; without uploadId: next.
}

}  // namespace quorvane
