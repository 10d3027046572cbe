#include "emulator/vod_signature_check.h"

#include <algorithm>

#include "foundation/crypto.h"

namespace quorvane::emulator {
namespace {

std::vector<std::pair<std::string, std::string>> encodedPairs(const Pairs& params) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& [k, v] : params)
        if (k != "Signature") out.emplace_back(percentEncode(k), percentEncode(v));
    return out;
}

std::string join(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : "&") + item;
    return out;
}

std::string toSign(const std::string& method, const std::string& canonical) {
    return method + "&" + percentEncode("/") + "&" + percentEncode(canonical);
}

std::string canonicalByName(const Pairs& params) {
    auto pairs = encodedPairs(params);
    std::sort(pairs.begin(), pairs.end());
    std::vector<std::string> items;
    for (const auto& [k, v] : pairs) items.push_back(k + "=" + v);
    return join(items);
}

std::string canonicalCaseInsensitive(const Pairs& params) {
    std::vector<std::string> items;
    for (const auto& [k, v] : encodedPairs(params)) items.push_back(k + "=" + v);
    std::sort(items.begin(), items.end(), [](const std::string& a, const std::string& b) { return toLower(a) < toLower(b); });
    return join(items);
}

}  // namespace

std::string rpcStringToSign(const std::string& method, const Pairs& params) {
    return toSign(method, canonicalByName(params));
}

bool rpcSignatureMatches(const std::string& method, const Pairs& params, const std::string& secret) {
    std::string provided;
    for (const auto& [k, v] : params)
        if (k == "Signature") provided = v;
    if (provided.empty()) return false;
    auto key = secret + "&";
    return foundation::hmacSha1Base64(key, rpcStringToSign(method, params)) == provided ||
           foundation::hmacSha1Base64(key, toSign(method, canonicalCaseInsensitive(params))) == provided;
}

bool isAcs3Authorization(std::string_view header) {
    return startsWith(header, kAcs3Algorithm) && header.size() > kAcs3Algorithm.size() &&
           header[kAcs3Algorithm.size()] == ' ';
}

std::optional<Acs3Authorization> parseAcs3Authorization(std::string_view header) {
    if (!isAcs3Authorization(header)) return std::nullopt;
    Acs3Authorization out;
    std::string_view rest = header.substr(kAcs3Algorithm.size() + 1);
    while (!rest.empty()) {
        auto comma = rest.find(',');
        auto part = trim(rest.substr(0, comma));
        rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
        auto eq = part.find('=');
        if (eq == std::string::npos) return std::nullopt;
        auto name = part.substr(0, eq), value = part.substr(eq + 1);
        if (name == "Credential") {
            out.keyId = value;
        } else if (name == "Signature") {
            out.signature = value;
        } else if (name == "SignedHeaders") {
            for (std::size_t start = 0; start <= value.size();) {
                auto semi = value.find(';', start);
                auto item = toLower(value.substr(start, semi == std::string::npos ? std::string::npos : semi - start));
                if (item.empty()) return std::nullopt;
                out.signedHeaders.push_back(item);
                if (semi == std::string::npos) break;
                start = semi + 1;
            }
        }
    }
    if (out.keyId.empty() || out.signature.empty() || out.signedHeaders.empty()) return std::nullopt;
    return out;
}

std::string acs3CanonicalRequest(const std::string& method, const std::string& path, const Pairs& query,
                                 Pairs signedHeaders, const std::string& payloadHash) {
    std::vector<std::pair<std::string, std::string>> encoded;
    for (const auto& [k, v] : query) encoded.emplace_back(percentEncode(k), percentEncode(v));
    std::sort(encoded.begin(), encoded.end());
    std::vector<std::string> items;
    for (const auto& [k, v] : encoded) items.push_back(k + "=" + v);

    for (auto& [name, value] : signedHeaders) name = toLower(name);
    std::sort(signedHeaders.begin(), signedHeaders.end());
    std::string headerLines, names;
    for (const auto& [name, value] : signedHeaders) {
        headerLines += name + ":" + trim(value) + "\n";
        names += (names.empty() ? "" : ";") + name;
    }
    return method + "\n" + path + "\n" + join(items) + "\n" + headerLines + "\n" + names + "\n" + payloadHash;
}

std::string acs3StringToSign(const std::string& canonicalRequest) {
    return std::string(kAcs3Algorithm) + "\n" + foundation::sha256Hex(canonicalRequest);
}

std::string acs3Signature(const std::string& secret, const std::string& canonicalRequest) {
    return foundation::hexLower(foundation::hmacSha256Raw(secret, acs3StringToSign(canonicalRequest)));
}

}  // namespace quorvane::emulator
