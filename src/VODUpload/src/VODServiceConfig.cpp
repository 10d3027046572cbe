#include "VODUpload/src/VODServiceConfig.h"

#include "VODUpload/src/VODObjectCache.h"
#include "foundation/http_client.h"

namespace quorvane {

std::string VODServiceConfig::regionalUrl(const std::string& region) {
    const std::string pattern = kDefaultPattern;
    const auto at = pattern.find("%s");
    return pattern.substr(0, at) + region + pattern.substr(at + 2);
}

std::string VODServiceConfig::urlForRegion(const std::string& region) const {
    if (!vodBaseUrl) return regionalUrl(region);
    std::string url = *vodBaseUrl;
    if (url.empty() || url.back() != '/') url.push_back('/');
    return url;
}

long VODServiceConfig::effectiveIdleTimeoutSeconds() const {
    return idleTimeoutSeconds > 0 ? idleTimeoutSeconds : kDefaultIdleTimeoutSeconds;
}

std::shared_ptr<foundation::HttpClient> VODServiceConfig::client() const {
    return httpClient ? httpClient : foundation::HttpClient::shared();
}

VODObjectCache& VODServiceConfig::cache() const {
    return resumeCache ? *resumeCache : VODObjectCache::sharedCache();
}

}  // namespace quorvane
