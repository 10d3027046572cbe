#pragma once
// Takes the host's uploads to cloud storage: object-storage configuration, multi-image upload to
// OSS, and ticket-based video upload through the upload engine.
#include <memory>
#include <optional>
#include <string>

#include "api/HttpSessionManager.h"
#include "foundation/value.h"

namespace quorvane {

class ApiOSSUploadTool : public std::enable_shared_from_this<ApiOSSUploadTool> {
public:
    // --- HTTP helpers for the enterprise server ---
    static std::shared_ptr<HttpSessionManager> pubManager();
    // JSON GET; parameters go into the query string. A failed request's body is not read.
    static void getRequestWithUrl(const std::string& url, const Value& requestParam, ReponseData reponseData);
    // POST of `bodyFromData` as the whole body. Header values that are empty are not sent; a
    // failed request's JSON body reaches the caller with "failure".
    static void postRequestWithUrl(const std::string& url, const Value& requestParam, const std::string& bodyFromData,
                                   bool needJsonContentType, const Value& header, ReponseData reponseData);
};

}  // namespace quorvane
