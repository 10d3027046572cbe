#pragma once
// Fault scripts written as JSON, for `quorvane-cloud --faults FILE`: an array of entries, each naming an
// operation ("*": any) and what happens to its next `count` requests (default 1), in file order:
//   {"operation": "UploadPart", "fault": "reset", "count": 2, "after_bytes": 1024}
//   {"operation": "PutObject", "status": 503, "code": "ServiceUnavailable", "message": "..."}
//   {"operation": "CompleteMultipartUpload", "delay_ms": 3000}
//   {"operation": "UploadPart", "fault": "corrupt-crc"}
// "fault" is "error", "reset", "delay" or "corrupt-crc"; without it, "status" means error and
// "delay_ms" means delay. Unknown names are refused, so a misspelt key never passes silently.
#include <optional>
#include <string>
#include <vector>

#include "emulator/cloud_emulator.h"

namespace quorvane::emulator {

// The faults of a script's text, each repeated `count` times; nullopt with `error` saying where and why.
std::optional<std::vector<Fault>> parseFaultScript(const std::string& text, std::string& error);
// The same from a file; the error names the file.
std::optional<std::vector<Fault>> loadFaultScript(const std::string& path, std::string& error);

}  // namespace quorvane::emulator
