#include "platform/capture_camera.h"

#include <mutex>

namespace quorvane::platform {
namespace {
std::mutex currentMutex;

// A device without a camera.
class UnavailableCaptureCamera : public CaptureCamera {
public:
    bool isAvailable() const override { return false; }
    bool startRunning(FrameHandler, std::function<void()>) override { return false; }
    void stopRunning() override {}
    bool isRunning() const override { return false; }
};

std::shared_ptr<CaptureCamera>& currentSlot() {
    static std::shared_ptr<CaptureCamera> camera;
    return camera;
}
}  // namespace

bool VideoFrame::valid() const {
    return width > 0 && height > 0 && stride >= width && luma &&
           luma->size() >= std::size_t(stride) * std::size_t(height - 1) + std::size_t(width);
}

VideoFrame VideoFrame::gray(int width, int height, std::vector<std::uint8_t> pixels) {
    return VideoFrame{width, height, width, std::make_shared<const std::vector<std::uint8_t>>(std::move(pixels))};
}

std::shared_ptr<CaptureCamera> CaptureCamera::current() {
    std::lock_guard lock(currentMutex);
    auto& slot = currentSlot();
    if (!slot) slot = std::make_shared<UnavailableCaptureCamera>();
    return slot;
}

void CaptureCamera::setCurrent(std::shared_ptr<CaptureCamera> camera) {
    std::lock_guard lock(currentMutex);
    currentSlot() = std::move(camera);
}

}  // namespace quorvane::platform
