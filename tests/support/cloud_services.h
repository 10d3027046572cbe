#pragma once
// Pointing the upload engine's services at the in-process cloud emulator for one test, and steering
// engine internals the cloud tests need. Header only: link the emulator and the engine to use it.
#include <chrono>
#include <string>

#include "VODUpload/src/AVCVEventManager.h"
#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/VODServiceConfig.h"
#include "VODUpload/src/VODUploadEngine.h"
#include "emulator/cloud_emulator.h"

namespace quorvane {

// Engine internals the upload tests steer: parts one at a time make fault scripts and pauses deterministic.
struct VODUploadEngineTestAccess {
    static void setMaxConcurrentParts(VODUploadEngine& c, int n) {
        c.updateOptions([&](VODUploadOptions& o) { o.maxConcurrentParts = n; });
    }
    static std::string uploadId(const VODUploadEngine& c) {
        return c.serially([&] { return c.upload_->uploadId.value_or(""); });
    }
    // The same, through a public client (the bridge's and the short-video client's).
    static void setMaxConcurrentParts(VODUploadClient& c, int n) {
        setMaxConcurrentParts(VODUploadClientInternals::engine(c), n);
    }
    static std::string uploadId(const VODUploadClient& c) { return uploadId(VODUploadClientInternals::engine(c)); }
};

namespace test {

// The video service and the log service, both at the started emulator.
inline VODServiceConfig servicesAt(const emulator::CloudEmulator& cloud) {
    VODServiceConfig config;
    config.vodBaseUrl = cloud.endpoint() + "/";
    config.logServiceEndpoint = cloud.endpoint();
    return config;
}

// Lets queued telemetry reach the emulator before it stops.
inline void drainEvents() { AVCVEventTransport::shared()->waitUntilIdle(std::chrono::seconds(10)); }

}  // namespace test
}  // namespace quorvane
