#include "platform/headless/headless_platform.h"

namespace quorvane::platform::headless {

Platform HeadlessDevice::platform() const {
    return Platform{device, pasteboard, urlOpener, systemSound};
}

HeadlessDevice makeHeadlessDevice() {
    return HeadlessDevice{std::make_shared<HeadlessDeviceInfo>(),
                          std::make_shared<HeadlessPasteboard>(),
                          std::make_shared<HeadlessUrlOpener>(),
                          std::make_shared<HeadlessSystemSound>(),
                          makeHeadlessPrivacy(),
                          std::make_shared<HeadlessMicrophone>(),
                          std::make_shared<HeadlessCaptureCamera>(),
                          std::make_shared<HeadlessMediaPicker>(),
                          std::make_shared<HeadlessPhotoLibrary>(),
                          std::make_shared<HeadlessScanAlbum>(),
                          std::make_shared<HeadlessAudioSession>(),
                          std::make_shared<HeadlessReachabilitySource>()};
}

HeadlessDevice installHeadlessDevice() {
    auto device = makeHeadlessDevice();
    Platform::setCurrent(device.platform());
    PrivacyServices::setCurrent(device.privacy.services());
    Microphone::setCurrent(device.microphone);
    RecordingClock::setCurrent(device.microphone);
    CaptureCamera::setCurrent(device.camera);
    MediaPicker::setCurrent(device.mediaPicker);
    PhotoLibrary::setSharedPhotoLibrary(device.photoLibrary);
    ScanAlbum::setCurrent(device.scanAlbum);
    SharedAudioSession::setCurrent(device.audioSession);
    setReachabilitySource(device.reachability);
    return device;
}

}  // namespace quorvane::platform::headless
