#include "VODUpload/src/VODServiceConfig.h"

#include "VODUpload/src/AVCVEventManager.h"
#include "foundation/http_client.h"

namespace quorvane {

VODServiceConfig VODServiceConfig::current() {
    VODServiceConfig config;
    config.vodBaseUrl = VODServiceEndpoint::baseUrl();
    config.caFile = VODServiceEndpoint::caFile();
    config.idleTimeoutSeconds = VODServiceEndpoint::idleTimeoutSeconds();
    config.logServiceEndpoint = AVCVEventManager::logServiceEndpoint();
    return config;
}

std::string VODServiceConfig::urlForRegion(const std::string& region) const {
    if (!vodBaseUrl) return VODServiceEndpoint::regionalUrl(region);
    std::string url = *vodBaseUrl;
    if (url.empty() || url.back() != '/') url.push_back('/');
    return url;
}

long VODServiceConfig::effectiveIdleTimeoutSeconds() const {
    return idleTimeoutSeconds > 0 ? idleTimeoutSeconds : VODServiceEndpoint::kDefaultIdleTimeoutSeconds;
}

std::shared_ptr<foundation::HttpClient> VODServiceConfig::client() const {
    return httpClient ? httpClient : foundation::HttpClient::shared();
}

}  // namespace quorvane
