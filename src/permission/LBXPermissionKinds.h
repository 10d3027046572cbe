#pragma once
// The stateless per-kind permission classes: camera, photos, contacts, calendar, reminders, media
// library and microphone. Known statuses answer at once on the caller's thread; a prompt's answer
// reaches the callback on the main thread.
#include <cstdint>

#include "permission/LBXPermission.h"

namespace quorvane {

class LBXPermissionCamera {
public:
    // True also when the platform has no status query.
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionPhotos {
public:
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionContacts {
public:
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionCalendar {
public:
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionReminders {
public:
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionMediaLibrary {
public:
    static bool authorized();
    static int authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

class LBXPermissionMicrophone {
public:
    static bool authorized();
    // The record permission, a four-character value ('undt', 'deny', 'grnt').
    static std::uint32_t authorizationStatus();
    static void authorizeWithCompletion(LBXPermissionCompletion completion);
};

}  // namespace quorvane
