// Capture figures on this machine (not a test: timings): pictures per second the scanner decodes
// from a 640×480 camera, with and without the camera in the way, so the camera path's cost shows.
//   capture_bench camera <input URL> <seconds>   frames the camera hands over and ZXing reads, per second
//   capture_bench decode <seconds>              ZXing alone on one 640×480 frame, per second
//   capture_bench devices                       the input devices this FFmpeg build has
extern "C" {
#include <libavdevice/avdevice.h>
}

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "device/QrDecoder.h"
#include "foundation/dispatch.h"
#include "platform/linux/capture/linux_capture_camera.h"

using namespace quorvane;
using Clock = std::chrono::steady_clock;

namespace {

int camera(const std::string& url, double seconds) {
    auto camera = std::make_shared<platform::linux_capture::LinuxCaptureCamera>(url);
    long frames = 0;
    std::size_t found = 0;
    int width = 0, height = 0;
    if (!camera->startRunning(
            [&](const platform::VideoFrame& frame) {
                width = frame.width;
                height = frame.height;
                found += recognizeLuma({frame.luma->data(), frame.width, frame.height, frame.stride},
                                       LBXScanCodeTypeQRCode, false)
                             .size();
                ++frames;
            },
            {})) {
        std::fprintf(stderr, "camera %s does not open\n", url.c_str());
        return 1;
    }
    auto start = Clock::now();
    foundation::MainLoop::instance().runUntil([] { return false; },
                                              std::chrono::milliseconds(static_cast<long>(seconds * 1000)));
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    long converted = camera->framesDelivered();
    camera->stopRunning();
    std::printf("camera %s: %dx%d, %.1f frames/s read by ZXing (%ld converted, codes found %zu)\n", url.c_str(), width,
                height, frames / elapsed, converted, found);
    return 0;
}

int decode(double seconds) {
    // A busy gray pattern without a code: the quick search runs to its end on every frame.
    std::vector<std::uint8_t> pixels(640 * 480);
    std::uint32_t state = 20261123;
    for (auto& pixel : pixels) pixel = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    long frames = 0;
    auto start = Clock::now();
    double elapsed = 0;
    while (elapsed < seconds) {
        recognizeLuma({pixels.data(), 640, 480, 640}, LBXScanCodeTypeQRCode, false);
        ++frames;
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    }
    std::printf("ZXing alone: %.1f frames/s at 640x480\n", frames / elapsed);
    return 0;
}

int devices() {
    avdevice_register_all();
    for (const AVInputFormat* format = nullptr; (format = av_input_audio_device_next(format));)
        std::printf("  audio  %-10s %s\n", format->name, format->long_name ? format->long_name : "");
    for (const AVInputFormat* format = nullptr; (format = av_input_video_device_next(format));)
        std::printf("  video  %-10s %s\n", format->name, format->long_name ? format->long_name : "");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "camera" && argc == 4) return camera(argv[2], std::atof(argv[3]));
    if (mode == "devices") return devices();
    if (mode == "decode" && argc == 3) return decode(std::atof(argv[2]));
    std::fprintf(stderr, "usage: capture_bench camera <input URL> <seconds> | decode <seconds> | devices\n");
    return 2;
}
