#pragma once
// Date texts the video service receives as the engine produces them.
#include <string>

#include "foundation/dates.h"

namespace quorvane {

// "yyyy-MM-dd'T'HH:mm:sss'Z'": the seconds are zero-padded to three digits (05:06:07 is written
// 05:06:007) and the literal Z is written even for local time; the service gets exactly this.
std::string vodDateString(foundation::SystemTime t, bool utc);
// The default textual form of a date: "2024-01-02 03:04:05 +0000" (UTC).
std::string vodDateDescription(foundation::SystemTime t);

}  // namespace quorvane
