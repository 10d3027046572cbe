#pragma once
// Server-side check of VOD OpenAPI request signatures: the RPC form's HMAC-SHA1 query signature and
// ACS3-HMAC-SHA256 in headers.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulator/util.h"

namespace quorvane::emulator {

// "GET&%2F&" + percentEncode(canonical query), the canonical query sorted by encoded name.
std::string rpcStringToSign(const std::string& method, const Pairs& params);
// True when `params` carry a "Signature" that HMAC-SHA1(secret + "&") gives for them. Pairs sorted
// case-insensitively as whole "k=v" texts are accepted too: some clients order them that way and the
// service accepts the keys they send.
bool rpcSignatureMatches(const std::string& method, const Pairs& params, const std::string& secret);

inline constexpr std::string_view kAcs3Algorithm = "ACS3-HMAC-SHA256";

// "ACS3-HMAC-SHA256 Credential=<key id>,SignedHeaders=<a;b;c>,Signature=<hex>".
struct Acs3Authorization {
    std::string keyId;
    std::vector<std::string> signedHeaders;  // lower-cased, in the order listed
    std::string signature;
};
// True when the header names the ACS3 algorithm (whether or not the rest is well formed).
bool isAcs3Authorization(std::string_view header);
// nullopt unless all three parts are present and none is empty.
std::optional<Acs3Authorization> parseAcs3Authorization(std::string_view header);

// The canonical request: method, path, the query's decoded pairs re-encoded and sorted, the signed
// headers (lower-case name, value as received) sorted by name, their names, and the body's hex SHA-256.
std::string acs3CanonicalRequest(const std::string& method, const std::string& path, const Pairs& query,
                                 Pairs signedHeaders, const std::string& payloadHash);
// "ACS3-HMAC-SHA256\n" + hex SHA-256(canonical request).
std::string acs3StringToSign(const std::string& canonicalRequest);
// Lower-case hex HMAC-SHA256(secret, acs3StringToSign(canonical request)).
std::string acs3Signature(const std::string& secret, const std::string& canonicalRequest);

}  // namespace quorvane::emulator
