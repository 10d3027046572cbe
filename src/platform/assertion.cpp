#include "platform/assertion.h"

#include <cstdlib>
#include <mutex>

#include "foundation/log.h"

namespace quorvane::platform {
namespace {

std::mutex& handlerMutex() {
    static std::mutex mutex;
    return mutex;
}

AssertionHandler& handlerSlot() {
    static AssertionHandler handler;
    return handler;
}

[[noreturn]] void logAndAbort(const AssertionFailure& failure) {
    foundation::logLine("*** Assertion failure in " + failure.function + ", " + failure.source + ":" +
                        std::to_string(failure.line));
    foundation::logLine(failure.text);
    std::abort();
}

}  // namespace

void setAssertionHandler(AssertionHandler handler) {
    std::lock_guard lock(handlerMutex());
    handlerSlot() = std::move(handler);
}

void assertionFailed(const AssertionFailure& failure) {
    AssertionHandler handler;
    {
        std::lock_guard lock(handlerMutex());
        handler = handlerSlot();
    }
    if (!handler) logAndAbort(failure);
    handler(failure);
}

}  // namespace quorvane::platform
