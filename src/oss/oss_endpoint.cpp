#include "oss/oss_endpoint.h"

#include <algorithm>
#include <cctype>

#include "foundation/http_client.h"

namespace quorvane::oss {
namespace {

bool startsWithNoCase(const std::string& s, const std::string& prefix) {
    if (s.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(s[i])) != prefix[i]) return false;
    return true;
}

bool isIpv4(const std::string& host) {
    int dots = 0;
    for (char c : host) {
        if (c == '.') ++dots;
        else if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    }
    return dots == 3;
}

bool validHostChars(const std::string& host) {
    return std::all_of(host.begin(), host.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == '_' || c == ':' || c == '[' || c == ']';
    });
}

}  // namespace

bool isValidBucketName(const std::string& name) {
    if (name.size() < 3 || name.size() > 63) return false;
    auto letterOrDigit = [](unsigned char c) { return std::islower(c) || std::isdigit(c); };
    return letterOrDigit(name.front()) && letterOrDigit(name.back()) &&
           std::all_of(name.begin(), name.end(), [&](unsigned char c) { return letterOrDigit(c) || c == '-'; });
}

bool isIpOrLocalHost(const std::string& host) {
    return isIpv4(host) || (!host.empty() && host.front() == '[') || host == "localhost";
}

std::optional<OSSEndpoint> parseEndpoint(const std::string& endpoint, bool forcePathStyle, std::string* why) {
    OSSEndpoint result;
    std::string rest = endpoint;
    rest.erase(0, rest.find_first_not_of(" \t"));
    rest.erase(rest.find_last_not_of(" \t") + 1);
    if (startsWithNoCase(rest, "https://")) {
        rest.erase(0, 8);
    } else if (startsWithNoCase(rest, "http://")) {
        result.scheme = "http";
        rest.erase(0, 7);
    } else if (rest.find("://") != std::string::npos) {
        if (why) *why = "unsupported scheme in endpoint \"" + endpoint + "\"";
        return std::nullopt;
    }
    rest = rest.substr(0, rest.find_first_of("/?#"));
    auto fail = [&](const std::string& problem) -> std::optional<OSSEndpoint> {
        if (why) *why = "the endpoint \"" + endpoint + "\" " + problem;
        return std::nullopt;
    };
    if (rest.find('@') != std::string::npos) return fail("carries user credentials: give keys to the client instead");
    std::string host = rest;
    std::string port;
    if (!rest.empty() && rest.front() == '[') {
        auto close = rest.find(']');
        if (close == std::string::npos) return fail("has an IPv6 address without its closing ']'");
        host = rest.substr(0, close + 1);
        if (close + 1 < rest.size()) {
            if (rest[close + 1] != ':') return fail("has text after its IPv6 address");
            port = rest.substr(close + 2);
            if (port.empty()) return fail("has an empty port");
        }
    } else if (auto colon = rest.rfind(':'); colon != std::string::npos) {
        host = rest.substr(0, colon);
        port = rest.substr(colon + 1);
        if (port.empty()) return fail("has an empty port");
    }
    if (!port.empty() && (port.size() > 5 || !std::all_of(port.begin(), port.end(), ::isdigit) || std::stoi(port) > 65535))
        return fail("has a port that is not a number from 0 to 65535");
    if (host.empty() || host == "[]") return fail("has no host");
    if (!validHostChars(host)) return fail("has characters no host name may have");
    std::transform(host.begin(), host.end(), host.begin(), ::tolower);
    result.hostPort = rest;
    std::transform(result.hostPort.begin(), result.hostPort.end(), result.hostPort.begin(), ::tolower);
    result.pathStyle = forcePathStyle || isIpOrLocalHost(host);
    return result;
}

std::string encodeObjectKey(const std::string& key) {
    std::string out;
    std::size_t start = 0;
    while (true) {
        auto slash = key.find('/', start);
        out += foundation::urlEncode(std::string_view(key).substr(start, slash - start));
        if (slash == std::string::npos) break;
        out += '/';
        start = slash + 1;
    }
    return out;
}

std::string buildUrl(const OSSEndpoint& endpoint, const std::string& bucket, const std::string& objectKey,
                     const OSSQuery& query) {
    std::string url = endpoint.scheme + "://";
    if (bucket.empty()) {
        url += endpoint.hostPort + "/";
    } else if (endpoint.pathStyle) {
        url += endpoint.hostPort + "/" + bucket + "/";
    } else {
        url += bucket + "." + endpoint.hostPort + "/";
    }
    url += encodeObjectKey(objectKey);
    char separator = '?';
    for (const auto& [name, value] : query) {
        url += separator;
        url += foundation::urlEncode(name);
        if (value) url += "=" + foundation::urlEncode(*value);
        separator = '&';
    }
    return url;
}

}  // namespace quorvane::oss
