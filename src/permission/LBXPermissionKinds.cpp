#include "permission/LBXPermissionKinds.h"

#include "foundation/dispatch.h"
#include "platform/permissions.h"

namespace quorvane {
namespace {

using platform::PrivacyKind;

std::shared_ptr<platform::PrivacyAuthority> authority() { return platform::PrivacyServices::current().authority; }

std::optional<int> statusOf(PrivacyKind kind) {
    auto platform = authority();
    return platform ? platform->authorizationStatus(kind) : std::nullopt;
}

int statusOrAuthorized(PrivacyKind kind) { return statusOf(kind).value_or(platform::StatusAuthorized); }

// A prompt's answer always reaches the caller on the main thread.
void answerOnMain(const LBXPermissionCompletion& completion, bool granted) {
    if (!completion) return;
    foundation::dispatch::main().async([completion, granted] { completion(granted, true); });
}

// Statuses already decided answer at once; an undecided one asks the user. `ask` starts the prompt.
void authorizeByStatus(int status, const LBXPermissionCompletion& completion, bool otherStatusesRefuse,
                       const std::function<void()>& ask) {
    switch (status) {
    case platform::StatusNotDetermined: ask(); return;
    case platform::StatusRestricted:
    case platform::StatusDenied:
        if (completion) completion(false, false);
        return;
    case platform::StatusAuthorized:
        if (completion) completion(true, false);
        return;
    default:
        if (otherStatusesRefuse && completion) completion(false, false);
    }
}

// Camera, contacts, calendar, reminders: the platform answers granted or not.
void authorizeAccess(PrivacyKind kind, const LBXPermissionCompletion& completion) {
    authorizeByStatus(statusOf(kind).value_or(platform::StatusNotDetermined), completion, false, [kind, completion] {
        if (auto platform = authority())
            platform->requestAccess(kind, [completion](bool granted) { answerOnMain(completion, granted); });
    });
}

// Photos, media library: the platform answers the new status; only "authorised" grants.
void authorizeLibrary(PrivacyKind kind, const LBXPermissionCompletion& completion) {
    authorizeByStatus(statusOf(kind).value_or(platform::StatusNotDetermined), completion, true, [kind, completion] {
        if (auto platform = authority())
            platform->requestAuthorization(kind, [completion](int status) {
                answerOnMain(completion, status == platform::StatusAuthorized);
            });
    });
}

}  // namespace

bool LBXPermissionCamera::authorized() { return statusOrAuthorized(PrivacyKind::Camera) == platform::StatusAuthorized; }
int LBXPermissionCamera::authorizationStatus() { return statusOrAuthorized(PrivacyKind::Camera); }
void LBXPermissionCamera::authorizeWithCompletion(LBXPermissionCompletion completion) {
    if (!statusOf(PrivacyKind::Camera)) {
        if (completion) completion(true, false);
        return;
    }
    authorizeAccess(PrivacyKind::Camera, completion);
}

bool LBXPermissionPhotos::authorized() { return authorizationStatus() == platform::StatusAuthorized; }
int LBXPermissionPhotos::authorizationStatus() { return statusOf(PrivacyKind::Photos).value_or(platform::StatusNotDetermined); }
void LBXPermissionPhotos::authorizeWithCompletion(LBXPermissionCompletion completion) {
    authorizeLibrary(PrivacyKind::Photos, completion);
}

bool LBXPermissionContacts::authorized() { return authorizationStatus() == platform::StatusAuthorized; }
int LBXPermissionContacts::authorizationStatus() { return statusOf(PrivacyKind::Contacts).value_or(platform::StatusNotDetermined); }
void LBXPermissionContacts::authorizeWithCompletion(LBXPermissionCompletion completion) {
    authorizeAccess(PrivacyKind::Contacts, completion);
}

bool LBXPermissionCalendar::authorized() { return authorizationStatus() == platform::StatusAuthorized; }
int LBXPermissionCalendar::authorizationStatus() { return statusOf(PrivacyKind::Events).value_or(platform::StatusNotDetermined); }
void LBXPermissionCalendar::authorizeWithCompletion(LBXPermissionCompletion completion) {
    authorizeAccess(PrivacyKind::Events, completion);
}

bool LBXPermissionReminders::authorized() { return authorizationStatus() == platform::StatusAuthorized; }
int LBXPermissionReminders::authorizationStatus() { return statusOf(PrivacyKind::Reminders).value_or(platform::StatusNotDetermined); }
void LBXPermissionReminders::authorizeWithCompletion(LBXPermissionCompletion completion) {
    authorizeAccess(PrivacyKind::Reminders, completion);
}

bool LBXPermissionMediaLibrary::authorized() { return authorizationStatus() == platform::StatusAuthorized; }
int LBXPermissionMediaLibrary::authorizationStatus() {
    return statusOf(PrivacyKind::MediaLibrary).value_or(platform::StatusNotDetermined);
}
void LBXPermissionMediaLibrary::authorizeWithCompletion(LBXPermissionCompletion completion) {
    authorizeLibrary(PrivacyKind::MediaLibrary, completion);
}

bool LBXPermissionMicrophone::authorized() { return authorizationStatus() == platform::kRecordPermissionGranted; }
std::uint32_t LBXPermissionMicrophone::authorizationStatus() {
    auto platform = authority();
    return platform ? platform->recordPermission() : platform::kRecordPermissionUndetermined;
}

// No record of earlier prompts: only the platform's undetermined state makes a prompt.
void LBXPermissionMicrophone::authorizeWithCompletion(LBXPermissionCompletion completion) {
    auto permission = authorizationStatus();
    if (permission == platform::kRecordPermissionDenied) {
        if (completion) completion(false, false);
    } else if (permission == platform::kRecordPermissionGranted) {
        if (completion) completion(true, false);
    } else if (permission == platform::kRecordPermissionUndetermined) {
        auto platform = authority();
        if (!platform) return;
        auto session = platform->makeAudioSession();
        session->setCategory("AVAudioSessionCategoryPlayAndRecord");  // a refused category changes nothing here
        session->requestRecordPermission([completion](bool granted) { answerOnMain(completion, granted); });
    } else {
        // Any other value is answered as a first-time refusal. (The original called the callback
        // unchecked; an absent one is skipped here rather than crashing.)
        if (completion) completion(false, true);
    }
}

}  // namespace quorvane
