#include "platform/audio_session.h"

#include <mutex>

#include "platform/headless/headless_audio_session.h"

namespace quorvane::platform {
namespace {
std::mutex gSessionMutex;
std::shared_ptr<SharedAudioSession> gSession;
}  // namespace

std::shared_ptr<SharedAudioSession> SharedAudioSession::current() {
    std::lock_guard lock(gSessionMutex);
    if (!gSession) gSession = std::make_shared<headless::HeadlessAudioSession>();
    return gSession;
}

std::shared_ptr<SharedAudioSession> SharedAudioSession::setCurrent(std::shared_ptr<SharedAudioSession> session) {
    std::lock_guard lock(gSessionMutex);
    auto previous = std::move(gSession);
    gSession = std::move(session);
    return previous;
}

}  // namespace quorvane::platform
