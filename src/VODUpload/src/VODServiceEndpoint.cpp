#include "VODUpload/src/VODServiceEndpoint.h"

#include <mutex>

namespace quorvane {
namespace {

struct EndpointConfig {
    std::mutex mutex;
    std::optional<std::string> baseUrl;
    std::string caFile;
    long idleTimeoutSeconds = VODServiceEndpoint::kDefaultIdleTimeoutSeconds;
};

EndpointConfig& config() {
    static EndpointConfig instance;
    return instance;
}

}  // namespace

std::string VODServiceEndpoint::urlForRegion(const std::string& region) {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.baseUrl) return *c.baseUrl;
    return regionalUrl(region);
}

std::string VODServiceEndpoint::regionalUrl(const std::string& region) {
    const std::string pattern = kDefaultPattern;
    const auto at = pattern.find("%s");
    return pattern.substr(0, at) + region + pattern.substr(at + 2);
}

void VODServiceEndpoint::setBaseUrl(std::optional<std::string> baseUrl) {
    if (baseUrl && (baseUrl->empty() || baseUrl->back() != '/')) baseUrl->push_back('/');
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.baseUrl = std::move(baseUrl);
}

std::optional<std::string> VODServiceEndpoint::baseUrl() {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.baseUrl;
}

void VODServiceEndpoint::setCaFile(std::string caFile) {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.caFile = std::move(caFile);
}

std::string VODServiceEndpoint::caFile() {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.caFile;
}

void VODServiceEndpoint::setIdleTimeoutSeconds(long seconds) {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.idleTimeoutSeconds = seconds > 0 ? seconds : kDefaultIdleTimeoutSeconds;
}

long VODServiceEndpoint::idleTimeoutSeconds() {
    auto& c = config();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.idleTimeoutSeconds;
}

}  // namespace quorvane
