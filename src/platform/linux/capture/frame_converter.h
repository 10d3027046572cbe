#pragma once
// Turns decoded camera pictures into what the platform hands on: the luminance plane for the
// scanner, and an encoded still (PNG) for the camera screen. Luminance buffers are recycled, so a
// steady camera allocates none per frame, and a picture is converted straight into its buffer.
#include <optional>
#include <string>
#include <vector>

#include "foundation/ffmpeg_handles.h"
#include "platform/capture_camera.h"

namespace quorvane::platform::linux_capture {

class LumaConverter {
public:
    // An invalid frame when the picture cannot be converted.
    VideoFrame convert(const AVFrame& picture);

private:
    std::shared_ptr<std::vector<std::uint8_t>> freeBuffer(std::size_t size);
    foundation::ffmpeg::ScalerPtr scaler_;
    int width_ = 0, height_ = 0, format_ = -1;
    std::vector<std::shared_ptr<std::vector<std::uint8_t>>> pool_;
};

// The picture as PNG bytes, at its own size; nullopt when it cannot be encoded.
std::optional<std::string> encodePng(const AVFrame& picture);

}  // namespace quorvane::platform::linux_capture
