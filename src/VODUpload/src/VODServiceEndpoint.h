#pragma once
// Where the VOD OpenAPI lives, process-wide. By default the regional host
// "https://vod.<region>.aliyuncs.com/"; a host program or a test may point every request at another
// base URL (a local emulator), and may add a CA file so an HTTPS test endpoint is still verified.
// These settings are the defaults a client takes at creation (VODServiceConfig::current()); a
// client given its own VODServiceConfig does not read them.
#include <optional>
#include <string>

namespace quorvane {

class VODServiceEndpoint {
public:
    // The regional pattern; "%s" takes the region id.
    static constexpr const char* kDefaultPattern = "https://vod.%s.aliyuncs.com/";

    // The base URL ending in "/" that requests for `region` go to.
    static std::string urlForRegion(const std::string& region);
    // The regional pattern filled in, whatever base URL is set.
    static std::string regionalUrl(const std::string& region);

    // Sends every request to `baseUrl` (for example "http://127.0.0.1:8080/"); the region is then
    // ignored. nullopt restores the regional pattern. Process-wide; any thread.
    static void setBaseUrl(std::optional<std::string> baseUrl);
    static std::optional<std::string> baseUrl();

    // An extra CA bundle for verifying the endpoint's certificate; empty = the system store.
    static void setCaFile(std::string caFile);
    static std::string caFile();

    // Seconds without a byte moved before a request to the video service is given up (60, the
    // platform's default request time-out); a non-positive value restores it.
    static constexpr long kDefaultIdleTimeoutSeconds = 60;
    static void setIdleTimeoutSeconds(long seconds);
    static long idleTimeoutSeconds();
};

}  // namespace quorvane
