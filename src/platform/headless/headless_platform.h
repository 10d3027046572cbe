#pragma once
// The headless family: a whole scriptable device, with its concrete services so tests and the demo
// host can script and inspect them.
#include <memory>

#include "platform/headless/headless_audio_session.h"
#include "platform/headless/headless_capture_camera.h"
#include "platform/headless/headless_media_picker.h"
#include "platform/headless/headless_microphone.h"
#include "platform/headless/headless_permissions.h"
#include "platform/headless/headless_photo_library.h"
#include "platform/headless/headless_scan_album.h"
#include "platform/headless/headless_services.h"
#include "platform/headless/headless_system_sound.h"
#include "platform/headless/reachability_headless.h"
#include "platform/platform.h"

namespace quorvane::platform::headless {

struct HeadlessDevice {
    std::shared_ptr<HeadlessDeviceInfo> device;
    std::shared_ptr<HeadlessPasteboard> pasteboard;
    std::shared_ptr<HeadlessUrlOpener> urlOpener;
    std::shared_ptr<HeadlessSystemSound> systemSound;
    HeadlessPrivacy privacy;
    std::shared_ptr<HeadlessMicrophone> microphone;  // also the recording clock
    std::shared_ptr<HeadlessCaptureCamera> camera;
    std::shared_ptr<HeadlessMediaPicker> mediaPicker;
    std::shared_ptr<HeadlessPhotoLibrary> photoLibrary;
    std::shared_ptr<HeadlessScanAlbum> scanAlbum;
    std::shared_ptr<HeadlessAudioSession> audioSession;
    std::shared_ptr<HeadlessReachabilitySource> reachability;

    // The Platform struct's part of the device.
    Platform platform() const;
};

HeadlessDevice makeHeadlessDevice();
// Makes a fresh headless device and installs every one of its services (Platform, privacy,
// microphone and clock, camera, pickers, photo library, audio session, reachability).
HeadlessDevice installHeadlessDevice();

}  // namespace quorvane::platform::headless
