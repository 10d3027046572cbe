// `quorvane demo record | scan | photo`: the voice note, the scanning screen and the camera photo
// through the façade on this machine's capture devices (FFmpeg's device library), or on any FFmpeg
// input given with --input ("lavfi:sine=frequency=440", "image2:code.png?loop=1", ...). Screens and
// windows stay headless; each outcome is one JSON line.
#define ZX_USE_UTF8 1
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>

#include <unistd.h>

#include "api/QuorvaneApiManager.h"
#include "commands.h"
#include "device/AudioRecordMaskView.h"
#include "foundation/dispatch.h"
#include "platform/headless/headless_containers.h"
#include "platform/headless/headless_platform.h"
#include "platform/linux/capture/input_url.h"
#include "platform/linux/capture/linux_capture.h"
#include "platform/view.h"
#include "platform/window_hierarchy.h"

namespace quorvane::app {
namespace {

using Clock = std::chrono::steady_clock;

struct CaptureDemo {
    std::string input;
    int seconds = 5;
    int timeout = 30;
    std::string code;
};

// A camera picture holding the QR code of `text`, as a looped still: a white 640×480 gray picture
// (PGM, which FFmpeg's image2 reads) with the code a little above the middle, where the scanning
// frame falls.
std::string codePictureInput(const std::string& text) {
    auto code = ZXing::MultiFormatWriter(ZXing::BarcodeFormat::QRCode)
                    .setEncoding(ZXing::CharacterSet::UTF8)
                    .setMargin(2)
                    .encode(text, 150, 150);
    constexpr int width = 640, height = 480;
    std::string pixels(std::size_t(width) * height, char(255));
    int x0 = (width - code.width()) / 2, y0 = height * 43 / 100 - code.height() / 2;
    for (int row = 0; row < code.height(); ++row)
        for (int col = 0; col < code.width(); ++col)
            if (code.get(col, row)) pixels[std::size_t(y0 + row) * width + x0 + col] = 0;
    auto path = std::filesystem::temp_directory_path() / ("quorvane-code-" + std::to_string(::getpid()) + ".pgm");
    std::ofstream(path, std::ios::binary) << "P5\n" << width << " " << height << "\n255\n" << pixels;
    return "image2:" + path.string() + "?loop=1&framerate=15";
}

// A headless screen in the key window, for the façade to present on; the capture devices installed
// over the headless device.
std::shared_ptr<platform::headless::HeadlessScreen> prepare(const platform::linux_capture::CaptureInputs& inputs) {
    platform::headless::installHeadlessDevice();
    platform::linux_capture::installLinuxCapture(inputs);
    auto window = std::make_shared<platform::ControllerWindow>();
    platform::ApplicationWindows::setKeyWindow(window);
    platform::ApplicationWindows::setDelegateWindow(window);
    platform::Window::setKeyWindow(std::make_shared<platform::Window>());
    auto screen = platform::headless::HeadlessScreen::create();
    window->setRootViewController(screen);
    return screen;
}

Value alertValue(const platform::AlertController& alert) {
    Value buttons = Value::array();
    for (const auto& action : alert.actions()) buttons.push_back(action.title.value_or(""));
    return Value{{"title", alert.title().value_or("")}, {"message", alert.message().value_or("")}, {"buttons", buttons}};
}

// The callbacks of one façade operation, printed as they come; `answered` once either came.
struct Outcome {
    std::string op;
    std::shared_ptr<std::atomic<int>> answered = std::make_shared<std::atomic<int>>(0);
    std::function<void(const Value&)> success() const {
        return [op = op, answered = answered](const Value& value) {
            printDemoLine(op, {{"success", value}});
            *answered = 1;
        };
    }
    std::function<void(const Value&)> fail() const {
        return [op = op, answered = answered](const Value& value) {
            printDemoLine(op, {{"fail", value}});
            *answered = 2;
        };
    }
};

std::shared_ptr<AudioRecordMaskView> findOverlay() {
    for (const auto& view : platform::Window::keyWindow()->subviews())
        if (auto overlay = std::dynamic_pointer_cast<AudioRecordMaskView>(view)) return overlay;
    return nullptr;
}

int runRecord(const CaptureDemo& demo) {
    auto screen = prepare({demo.input, {}});
    Outcome outcome{"startAudioRecord"};
    foundation::dispatch::main().async([&demo, screen, outcome] {
        QuorvaneApiManager::startAudioRecord(demo.seconds, screen, outcome.success(), outcome.fail());
    });
    // The overlay's countdown as it changes; the end is an answer, the short-recording notice, or an
    // overlay gone without either (a recording that failed), given a moment for the answer.
    bool seen = false;
    std::string shown;
    std::optional<Clock::time_point> goneAt;
    std::size_t hudsBefore = screen->recorder()->huds().size();
    bool ended = foundation::MainLoop::instance().runUntil(
        [&] {
            if (*outcome.answered) return true;
            if (auto huds = screen->recorder()->huds(); huds.size() > hudsBefore) {
                printDemoLine("startAudioRecord", {{"notice", huds.back()->detailsText()}});
                return true;
            }
            auto overlay = findOverlay();
            if (overlay) {
                seen = true;
                auto label = overlay->durationLab();
                if (label && label->text() != shown) printDemoLine("countdown", {{"left", shown = label->text()}});
            } else if (seen) {
                if (!goneAt) goneAt = Clock::now();
                if (Clock::now() - *goneAt > std::chrono::milliseconds(500)) {
                    printDemoLine("startAudioRecord", {{"answer", nullptr}});
                    return true;
                }
            }
            return false;
        },
        std::chrono::seconds(demo.seconds + demo.timeout));
    if (!ended) std::cerr << "demo record: no outcome in time" << std::endl;
    return *outcome.answered == 1 ? 0 : 1;
}

int runScan(const CaptureDemo& demo) {
    std::string input = demo.code.empty() ? demo.input : codePictureInput(demo.code);
    auto screen = prepare({{}, input});
    Outcome outcome{"scanWithController"};
    foundation::dispatch::main().async(
        [screen, outcome] { QuorvaneApiManager::scanWithController(screen, outcome.success(), outcome.fail()); });
    bool ended = foundation::MainLoop::instance().runUntil(
        [&] {
            if (*outcome.answered) return true;
            auto alert = std::dynamic_pointer_cast<platform::AlertController>(screen->presentedViewController());
            if (!alert) return false;
            printDemoLine("scanWithController", {{"alert", alertValue(*alert)}});
            return true;
        },
        std::chrono::seconds(demo.timeout));
    if (!ended) std::cerr << "demo scan: no code read in " << demo.timeout << " s" << std::endl;
    if (!demo.code.empty()) std::filesystem::remove(input.substr(7, input.find('?') - 7));
    return *outcome.answered == 1 ? 0 : 1;
}

int runPhoto(const CaptureDemo& demo) {
    auto screen = prepare({{}, demo.input});
    Outcome outcome{"getImageByCameraCompressed"};
    foundation::dispatch::main().async([screen, outcome] {
        QuorvaneApiManager::getImageByCameraCompressed(1, screen, outcome.success(), outcome.fail());
    });
    bool ended = foundation::MainLoop::instance().runUntil([&] { return *outcome.answered != 0; },
                                                           std::chrono::seconds(demo.timeout));
    if (!ended) std::cerr << "demo photo: no photo in " << demo.timeout << " s" << std::endl;
    return *outcome.answered == 1 ? 0 : 1;
}

}  // namespace

// An input the capture can open names its FFmpeg format first: a bare "code.png" is a usage error here,
// before any device or permission prompt is involved.
const CLI::Validator kInputUrl(
    [](std::string& url) -> std::string {
        if (platform::linux_capture::parseInputUrl(url)) return {};
        return "'" + url + "' is not an input this program understands: write FORMAT:INPUT, the FFmpeg format first "
               "(image2:" + (url.empty() ? std::string("code.png") : url) + "?loop=1 for a picture, file:" +
               (url.empty() ? std::string("clip.mp4") : url) + " for a media file, v4l2:/dev/video0, alsa:default, lavfi:...)";
    },
    "FORMAT:INPUT", "FFmpeg input URL");

std::vector<Subcommand> addDemoCaptureCommands(CLI::App& demo) {
    std::vector<Subcommand> commands;
    auto record = std::make_shared<CaptureDemo>();
    record->input = "alsa:default";
    CLI::App* recordCommand = demo.add_subcommand("record", "A voice note from the microphone, with its countdown");
    recordCommand->add_option("--input", record->input, "Microphone as an FFmpeg input URL")
        ->check(kInputUrl)
        ->capture_default_str();
    recordCommand->add_option("--seconds", record->seconds, "The recording's limit")->check(CLI::Range(1, 600))
        ->capture_default_str();
    commands.push_back({recordCommand, [record] { return runRecord(*record); }});

    auto scan = std::make_shared<CaptureDemo>();
    scan->input = "v4l2:/dev/video0";
    CLI::App* scanCommand = demo.add_subcommand("scan", "The scanning screen on camera frames; prints the text read");
    scanCommand->add_option("--input", scan->input, "Camera as an FFmpeg input URL")
        ->check(kInputUrl)
        ->capture_default_str();
    scanCommand->add_option("--code", scan->code, "Play a picture of this text's QR code as the camera instead");
    scanCommand->add_option("--timeout", scan->timeout, "Seconds to wait for a code")->capture_default_str();
    commands.push_back({scanCommand, [scan] { return runScan(*scan); }});

    auto photo = std::make_shared<CaptureDemo>();
    photo->input = "v4l2:/dev/video0";
    CLI::App* photoCommand = demo.add_subcommand("photo", "A compressed camera photo; prints the result array");
    photoCommand->add_option("--input", photo->input, "Camera as an FFmpeg input URL")
        ->check(kInputUrl)
        ->capture_default_str();
    commands.push_back({photoCommand, [photo] { return runPhoto(*photo); }});
    return commands;
}

}  // namespace quorvane::app
