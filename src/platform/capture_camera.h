#pragma once
// The video-capture camera (an AVCaptureSession with a video data output): while running it hands
// each frame's luminance plane to one consumer on the main thread. Until a platform family installs
// one, the device has no camera.
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace quorvane::platform {

// Posted on the default notification centre, on the main thread, when a running camera stops by
// itself (its device went away, its input ended); no frame follows.
inline constexpr const char* AVCaptureSessionRuntimeErrorNotification = "AVCaptureSessionRuntimeErrorNotification";

// One frame's luminance (the Y plane of the camera's output), 8 bits per pixel, row by row.
struct VideoFrame {
    int width = 0;
    int height = 0;
    int stride = 0;  // bytes from one row to the next (>= width)
    std::shared_ptr<const std::vector<std::uint8_t>> luma;

    bool valid() const;
    // A frame over a copy of `pixels` (stride = width).
    static VideoFrame gray(int width, int height, std::vector<std::uint8_t> pixels);
};

class CaptureCamera {
public:
    using FrameHandler = std::function<void(const VideoFrame& frame)>;
    virtual ~CaptureCamera() = default;
    // Whether the device has a camera that can capture video.
    virtual bool isAvailable() const = 0;
    // Starts capturing: `started` (may be empty) once running, then every frame to `onFrame`, both on
    // the main thread. Replaces an earlier consumer. False, with nothing called, when unavailable.
    virtual bool startRunning(FrameHandler onFrame, std::function<void()> started) = 0;
    // No frame reaches the consumer after this returns (on the main thread).
    virtual void stopRunning() = 0;
    virtual bool isRunning() const = 0;

    // The installed camera; an unavailable one until a family installs one (nullptr restores it).
    // Never null. Safe from any thread.
    static std::shared_ptr<CaptureCamera> current();
    static void setCurrent(std::shared_ptr<CaptureCamera> camera);
};

}  // namespace quorvane::platform
