#include "platform/audio_session.h"

#include <mutex>

namespace quorvane::platform {
namespace {
std::mutex gSessionMutex;
std::shared_ptr<SharedAudioSession> gSession;

// No audio hardware: every category and activation is refused.
class UnavailableAudioSession : public SharedAudioSession {
public:
    bool setCategory(const std::string&) override { return false; }
    bool setActive(bool, int) override { return false; }
};
}  // namespace

std::shared_ptr<SharedAudioSession> SharedAudioSession::current() {
    std::lock_guard lock(gSessionMutex);
    if (!gSession) gSession = std::make_shared<UnavailableAudioSession>();
    return gSession;
}

std::shared_ptr<SharedAudioSession> SharedAudioSession::setCurrent(std::shared_ptr<SharedAudioSession> session) {
    std::lock_guard lock(gSessionMutex);
    auto previous = std::move(gSession);
    gSession = std::move(session);
    return previous;
}

}  // namespace quorvane::platform
