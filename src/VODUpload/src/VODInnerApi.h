#pragma once
// The VOD service's upload-progress actions (ReportUploadProgress, GetUploadProgress): form-encoded
// POSTs to the OpenAPI endpoint, authenticated by an AuthInfo digest rather than the app's
// credentials. Stateless and fire-and-forget; handlers run on the HTTP client's worker thread. Each
// action comes twice: with the system's own services, and with a client's own VODServiceConfig last.
#include <functional>
#include <optional>
#include <string>

#include "VODUpload/src/VODInnerFileInfo.h"
#include "VODUpload/src/VODServiceConfig.h"
#include "foundation/error.h"
#include "foundation/value.h"

namespace quorvane {

// (error or absent).
using VODInnerReportHandler = std::function<void(std::optional<Error> error)>;
// (video id or absent, error or absent).
using VODInnerProgressHandler = std::function<void(std::optional<std::string> videoId, std::optional<Error> error)>;

class VODInnerApi {
public:
    // Reports how far the multipart upload `uploadId` of the file has got. An empty `videoId` is
    // not sent. The handler (may be empty) gets only transport errors: the answer is not inspected.
    static void reportUploadProgress(const VODInnerFileInfo& fileInfo, float uploadRatio, long partSize,
                                     long donePartsCount, const std::string& uploadId, const std::string& videoId,
                                     const std::string& uploadAddress, const std::string& region,
                                     VODInnerReportHandler completeHandler);
    static void reportUploadProgress(const VODInnerFileInfo& fileInfo, float uploadRatio, long partSize,
                                     long donePartsCount, const std::string& uploadId, const std::string& videoId,
                                     const std::string& uploadAddress, const std::string& region,
                                     VODInnerReportHandler completeHandler, const VODServiceConfig& config);

    // Asks whether the service already holds a video for the file: the handler gets the first
    // listed "VideoId" when there is a non-empty one.
    static void getUploadProgress(const VODInnerFileInfo& fileInfo, const std::string& region,
                                  VODInnerProgressHandler completeHandler);
    static void getUploadProgress(const VODInnerFileInfo& fileInfo, const std::string& region,
                                  VODInnerProgressHandler completeHandler, const VODServiceConfig& config);

    // The ten parameters both actions carry, with a fresh "SignatureNonce".
    static Value defaultParams();
    // "iPad" for an iPad model name, else "iPhone".
    static std::string getTerminalType();
};

}  // namespace quorvane
