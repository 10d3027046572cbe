#pragma once
// What the short-video client reports. Calls arrive on the client's own serial queue, one at a time and
// in order, never on the main thread by design; calling the client back from one runs in place.
#include <cstdint>
#include <string>

#include "VODUpload/src/VodSVideoInfo.h"

namespace quorvane {

class VODUploadSVideoClientDelegate {
public:
    virtual ~VODUploadSVideoClientDelegate() = default;

    // Optional: a delegate that does not override these hears nothing of the success.
    virtual void uploadSuccessWithVid(const std::optional<std::string>& /*vid*/,
                                      const std::optional<std::string>& /*imageUrl*/) {}
    virtual void uploadSuccessWithResult(const VodSVideoUploadResult& /*result*/) {}

    virtual void uploadFailedWithCode(const std::string& code, const std::string& message) = 0;
    // One bar over both files: the cover's bytes first, then the video's.
    virtual void uploadProgressWithUploadedSize(std::int64_t uploadedSize, std::int64_t totalSize) = 0;
    // The job is parked until refreshWithAccessKeyId brings new credentials.
    virtual void uploadTokenExpired() = 0;
    virtual void uploadRetry() = 0;
    virtual void uploadRetryResume() = 0;
};

}  // namespace quorvane
