#pragma once
// The video camera on FFmpeg's device library: a V4L2 device, or any FFmpeg input with pictures (a
// lavfi source, a movie, a looped picture), named by an input URL (input_url.h). While running, its
// reader hands each picture's luminance to the consumer on the main thread. When the consumer is
// still busy with earlier frames the reader skips pictures instead of queueing them, so what the
// scanner sees stays current. An input that ends posts AVCaptureSessionRuntimeErrorNotification.
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/capture_camera.h"
#include "platform/linux/capture/input_url.h"

namespace quorvane::platform::linux_capture {

class LinuxCaptureCamera : public CaptureCamera, public std::enable_shared_from_this<LinuxCaptureCamera> {
public:
    explicit LinuxCaptureCamera(std::string url);
    ~LinuxCaptureCamera() override;

    bool isAvailable() const override;
    bool startRunning(FrameHandler onFrame, std::function<void()> started) override;
    void stopRunning() override;
    bool isRunning() const override;

    // Whether the input opens now (closed again at once): no failure, or why not.
    std::optional<OpenFailure> probe() const;
    // Pictures converted and handed to the main thread so far (for measurements).
    long framesDelivered() const;
    const std::string& url() const { return url_; }

private:
    class Session;
    const std::string url_;
    mutable std::mutex mutex_;
    std::shared_ptr<Session> session_;
};

}  // namespace quorvane::platform::linux_capture
