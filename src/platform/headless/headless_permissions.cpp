#include "platform/headless/headless_permissions.h"

#include "foundation/dispatch.h"

namespace quorvane::platform::headless {
namespace {

constexpr int kMicrophoneKey = 100;

int keyOf(PrivacyKind kind) { return static_cast<int>(kind); }

class HeadlessAudioSession : public AudioSession {
public:
    explicit HeadlessAudioSession(std::shared_ptr<HeadlessPrivacyAuthority> authority) : authority_(std::move(authority)) {}
    bool setCategory(const std::string& category) override {
        authority_->noteAudioCategory(category);
        return true;
    }
    void requestRecordPermission(std::function<void(bool)> answer) override { authority_->requestRecord(std::move(answer)); }
private:
    std::shared_ptr<HeadlessPrivacyAuthority> authority_;
};

}  // namespace

void HeadlessPrivacyAuthority::setStatus(PrivacyKind kind, std::optional<int> status) {
    std::lock_guard lock(mutex_);
    statuses_[keyOf(kind)] = status;
}

void HeadlessPrivacyAuthority::setRecordPermission(std::uint32_t permission) {
    std::lock_guard lock(mutex_);
    statuses_[kMicrophoneKey] = static_cast<int>(permission);
}

void HeadlessPrivacyAuthority::scriptAnswer(PrivacyKind kind, bool granted, AnswerOn on) {
    scriptStatusAnswer(kind, granted ? StatusAuthorized : StatusDenied, on);
}

void HeadlessPrivacyAuthority::scriptStatusAnswer(PrivacyKind kind, int status, AnswerOn on) {
    std::lock_guard lock(mutex_);
    scripts_[keyOf(kind)] = Script{status, on};
}

void HeadlessPrivacyAuthority::scriptRecordAnswer(bool granted, AnswerOn on) {
    std::lock_guard lock(mutex_);
    scripts_[kMicrophoneKey] = Script{granted ? StatusAuthorized : StatusDenied, on};
}

void HeadlessPrivacyAuthority::answerPending(PrivacyKind kind, bool granted) {
    std::vector<std::function<void(int)>> waiting;
    {
        std::lock_guard lock(mutex_);
        waiting.swap(pending_[keyOf(kind)]);
    }
    for (auto& answer : waiting) settle(keyOf(kind), granted ? StatusAuthorized : StatusDenied, answer, AnswerOn::CallerThread);
}

void HeadlessPrivacyAuthority::answerPendingRecord(bool granted) {
    std::vector<std::function<void(int)>> waiting;
    {
        std::lock_guard lock(mutex_);
        waiting.swap(pending_[kMicrophoneKey]);
    }
    for (auto& answer : waiting) settle(kMicrophoneKey, granted ? StatusAuthorized : StatusDenied, answer, AnswerOn::CallerThread);
}

int HeadlessPrivacyAuthority::prompts(PrivacyKind kind) const {
    std::lock_guard lock(mutex_);
    auto it = prompts_.find(keyOf(kind));
    return it == prompts_.end() ? 0 : it->second;
}

int HeadlessPrivacyAuthority::recordPrompts() const {
    std::lock_guard lock(mutex_);
    auto it = prompts_.find(kMicrophoneKey);
    return it == prompts_.end() ? 0 : it->second;
}

std::vector<std::string> HeadlessPrivacyAuthority::audioCategories() const {
    std::lock_guard lock(mutex_);
    return categories_;
}

std::optional<int> HeadlessPrivacyAuthority::authorizationStatus(PrivacyKind kind) const {
    std::lock_guard lock(mutex_);
    auto it = statuses_.find(keyOf(kind));
    return it == statuses_.end() ? std::optional<int>(StatusNotDetermined) : it->second;
}

std::uint32_t HeadlessPrivacyAuthority::recordPermission() const {
    std::lock_guard lock(mutex_);
    auto it = statuses_.find(kMicrophoneKey);
    return it == statuses_.end() || !it->second ? kRecordPermissionUndetermined : static_cast<std::uint32_t>(*it->second);
}

void HeadlessPrivacyAuthority::requestAccess(PrivacyKind kind, std::function<void(bool)> answer) {
    prompt(keyOf(kind), [answer = std::move(answer)](int status) { answer(status == StatusAuthorized); });
}

void HeadlessPrivacyAuthority::requestAuthorization(PrivacyKind kind, std::function<void(int)> answer) {
    prompt(keyOf(kind), std::move(answer));
}

std::shared_ptr<AudioSession> HeadlessPrivacyAuthority::makeAudioSession() {
    return std::make_shared<HeadlessAudioSession>(shared_from_this());
}

void HeadlessPrivacyAuthority::requestRecord(std::function<void(bool)> answer) {
    prompt(kMicrophoneKey, [answer = std::move(answer)](int status) { answer(status == StatusAuthorized); });
}

void HeadlessPrivacyAuthority::noteAudioCategory(const std::string& category) {
    std::lock_guard lock(mutex_);
    categories_.push_back(category);
}

void HeadlessPrivacyAuthority::prompt(int key, std::function<void(int)> answer) {
    std::optional<Script> script;
    {
        std::lock_guard lock(mutex_);
        ++prompts_[key];
        if (auto it = scripts_.find(key); it != scripts_.end()) script = it->second;
        else pending_[key].push_back(answer);
    }
    if (script) settle(key, script->status, std::move(answer), script->on);
}

void HeadlessPrivacyAuthority::settle(int key, int status, std::function<void(int)> answer, AnswerOn on) {
    {
        std::lock_guard lock(mutex_);
        if (key == kMicrophoneKey)
            statuses_[key] = static_cast<int>(status == StatusAuthorized ? kRecordPermissionGranted : kRecordPermissionDenied);
        else
            statuses_[key] = status;
    }
    if (on == AnswerOn::CallerThread) answer(status);
    else foundation::dispatch::global().async([answer = std::move(answer), status] { answer(status); });
}

PrivacyServices HeadlessPrivacy::services() const { return PrivacyServices{authority, location, appInfo}; }

HeadlessPrivacy makeHeadlessPrivacy() {
    return HeadlessPrivacy{std::make_shared<HeadlessPrivacyAuthority>(), std::make_shared<HeadlessLocationServices>(),
                           std::make_shared<DictionaryAppInfo>()};
}

HeadlessPrivacy installHeadlessPrivacy() {
    auto privacy = makeHeadlessPrivacy();
    PrivacyServices::setCurrent(privacy.services());
    return privacy;
}

}  // namespace quorvane::platform::headless
