#pragma once
// Server-side check of RPC-style (VOD OpenAPI) request signatures.
#include <string>

#include "emulator/util.h"

namespace quorvane::emulator {

// "GET&%2F&" + percentEncode(canonical query), the canonical query sorted by encoded name.
std::string rpcStringToSign(const std::string& method, const Pairs& params);
// True when `params` carry a "Signature" that HMAC-SHA1(secret + "&") gives for them. Pairs sorted
// case-insensitively as whole "k=v" texts are accepted too: some clients order them that way and the
// service accepts the keys they send.
bool rpcSignatureMatches(const std::string& method, const Pairs& params, const std::string& secret);

}  // namespace quorvane::emulator
