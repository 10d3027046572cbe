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

}  // namespace quorvane::emulator
