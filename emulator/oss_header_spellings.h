#pragma once
// The server library hands header values over percent-decoded, so a header a client sent encoded (the
// copy source names its object percent-encoded) no longer reads as it was signed. These are the ways
// clients write such headers, for a signature check to try when the value as received does not match.
#include <vector>

#include "emulator/util.h"

namespace quorvane::emulator {

// Other spellings of `headers` with x-oss-copy-source re-encoded as clients encode it; empty when the
// value has nothing an encoder would change.
std::vector<Pairs> encodedHeaderSpellings(const Pairs& headers);

}  // namespace quorvane::emulator
