#pragma once
// The services one client talks to: the video service (VOD OpenAPI and its progress reports), the
// log service, and the HTTP client that carries the requests. Given to a client at creation, so two
// clients in one process can use different endpoints. A default-constructed value holds the system's
// own values; nothing here is process-wide, so a host builds its settings once and hands them down.
#include <memory>
#include <optional>
#include <string>

namespace quorvane {

namespace foundation {
class HttpClient;
}
class VODObjectCache;

// How requests to the VOD OpenAPI are signed: the RPC form's HMAC-SHA1 query signature, or
// ACS3-HMAC-SHA256 in headers, which the service takes wherever it still takes the older form.
enum class VODSignatureVersion { HmacSha1, Acs3HmacSha256 };

struct VODServiceConfig {
    // The regional pattern of the video service; "%s" takes the region id.
    static constexpr const char* kDefaultPattern = "https://vod.%s.aliyuncs.com/";
    // The platform's default request time-out.
    static constexpr long kDefaultIdleTimeoutSeconds = 60;

    // Base URL of the video service; nullopt = the regional "https://vod.<region>.aliyuncs.com/".
    std::optional<std::string> vodBaseUrl;
    // An extra CA bundle for the video service's certificate; empty = the system store alone.
    std::string caFile;
    // Seconds without a byte moved before a video-service request is given up; non-positive = 60.
    long idleTimeoutSeconds = kDefaultIdleTimeoutSeconds;
    // "scheme://host[:port]" or a bare host (https) of the log service; empty = no event leaves.
    std::string logServiceEndpoint;
    // The client every request of this configuration goes through; nullptr = the process-wide one.
    std::shared_ptr<foundation::HttpClient> httpClient;
    // The signature of VOD OpenAPI requests (CreateUploadVideo, RefreshUploadVideo, CreateUploadImage).
    VODSignatureVersion signatureVersion = VODSignatureVersion::HmacSha1;
    // Where a client keeps its multipart records unless told otherwise (setRecordDirectoryPath); empty
    // = ".cache" in the home directory of the account running the process. The library reads no
    // environment variable: a host that honours $XDG_CACHE_HOME puts it here.
    std::string recordDirectory;
    // The resume cache of video-service files (object and video id by file identity); nullptr = the
    // process-wide one on the standard user-defaults store.
    std::shared_ptr<VODObjectCache> resumeCache;

    // The base URL ending in "/" that requests for `region` go to.
    std::string urlForRegion(const std::string& region) const;
    // The regional pattern filled in, whatever base URL is set.
    static std::string regionalUrl(const std::string& region);
    long effectiveIdleTimeoutSeconds() const;
    std::shared_ptr<foundation::HttpClient> client() const;
    // The resume cache this configuration's clients read and write: resumeCache, else the process-wide one.
    VODObjectCache& cache() const;
};

}  // namespace quorvane
