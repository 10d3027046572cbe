#pragma once
// Programming errors the system checks for (NSAssert): one process-wide handler reports them.
// The default one logs the failure and ends the process; tests and hosts may put their own in its
// place, and the code after a failed assertion then carries on as safely as it can.
#include <functional>
#include <string>

namespace quorvane::platform {

struct AssertionFailure {
    std::string function;  // the method or function that asserted
    std::string source;    // its source file's name, without a suffix
    int line = 0;
    std::string text;
};

using AssertionHandler = std::function<void(const AssertionFailure& failure)>;

// Replaces the handler; null puts the default one back.
void setAssertionHandler(AssertionHandler handler);
// Reports `failure` through the handler. Returns only when a replaced handler returns.
void assertionFailed(const AssertionFailure& failure);

}  // namespace quorvane::platform
