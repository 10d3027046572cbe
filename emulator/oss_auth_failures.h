#pragma once
// What the V1 and V4 signature checks share: header look-up, and the failures both answer alike
// (a missing or stale date, an unknown key or token), with the service's codes and extra elements.
#include <optional>
#include <string>
#include <string_view>

#include "emulator/oss_signature_check.h"

namespace quorvane::emulator {

std::optional<std::string> headerValue(const Pairs& headers, std::string_view name);
OssAuthFailure authFailure(int status, std::string code, std::string message, Pairs extra = {});
// Space-separated upper-case hex of each byte, as the service shows the text it signed.
std::string spacedHex(const std::string& s);
// RequestTimeTooSkewed past 15 minutes either way.
std::optional<OssAuthFailure> skewFailure(foundation::SystemTime requestTime, const std::string& requestTimeText,
                                          foundation::SystemTime now);
// The key id, and the token under STS, must be known, match and be unexpired; `key` is filled on success.
std::optional<OssAuthFailure> keyFailure(const std::string& keyId, const Pairs& headers, const KeyLookup& lookup,
                                         KeyCheck& key);

}  // namespace quorvane::emulator
