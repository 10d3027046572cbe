#pragma once
// The façade's permission gate, passed before the camera, the album, the microphone or the scanner
// is used. Granted: the operation proceeds. Refused when the user had already decided: the
// operation's error word (or, for the scanner, the settings alert). Refused at the prompt just
// shown: nothing at all, since the prompt itself was the answer.
#include <functional>
#include <string>

#include "api/QuorvaneApiManager.h"

namespace quorvane {

// Asks permission `type` (LBXPermissionType); `proceed` runs once it is granted.
void passPermissionGate(int type, const std::string& errorWord, FailCallback failCallback,
                        std::function<void()> proceed);
// The scanner's gate on the camera (type 1): a repeat refusal shows the go-to-settings alert.
void passScanPermissionGate(std::function<void()> proceed);

}  // namespace quorvane
