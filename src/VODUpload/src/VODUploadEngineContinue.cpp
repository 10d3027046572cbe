// Continuing after new credentials arrived while paused by an expiry.
#include "VODUpload/src/VODUploadEngine.h"

namespace quorvane {

void VODUploadEngine::continueAfterNewCredentials() {
    if (uploadUnderWay()) {
        // The expiry struck during the multipart upload. Credentials the service issued for the file
        // are asked for again (a refresh); the caller's own continue the same upload directly.
        bool issued;
        {
            std::lock_guard lock(*credentialsMutex_);
            issued = openApiConfig_ != nullptr;
        }
        if (issued)
            requestUploadAuthAddress();
        else
            resumableUpload();
        return;
    }
    next();  // struck before the upload began: the first Ready file is taken again
}

}  // namespace quorvane
