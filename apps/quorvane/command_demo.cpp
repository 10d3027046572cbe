// `quorvane demo`: façade operations on the headless device, run on the main loop, one JSON line each.
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "api/QuorvaneApiManager.h"
#include "commands.h"
#include "foundation/dispatch.h"
#include "foundation/temp_files.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"

namespace quorvane::app {
namespace {

struct DemoOptions {
    std::string tmpdir;
    bool keepFiles = false;
    float delaySeconds = 0.2f;
};

Value alertValue(const platform::AlertController& alert) {
    Value buttons = Value::array();
    for (const auto& action : alert.actions()) buttons.push_back(action.title.value_or(""));
    return Value{{"title", alert.title().value_or("")}, {"message", alert.message().value_or("")}, {"buttons", buttons}};
}

// The synchronous steps: each prints its result at once.
void runImmediateSteps(const DemoOptions& options, const platform::headless::HeadlessDevice& device,
                       const std::shared_ptr<platform::headless::HeadlessPresenter>& screen) {
    QuorvaneApiManager::getSystemInfoWithSuccessCallback(
        [](const Value& info) { printDemoLine("getSystemInfoWithSuccessCallback", {{"success", info}}); },
        [](const Value& failure) { printDemoLine("getSystemInfoWithSuccessCallback", {{"fail", failure}}); });

    printDemoLine("getTimestamp", {{"result", QuorvaneApiManager::getTimestamp()}});

    std::string path = QuorvaneApiManager::saveFile("quorvane demo bytes", kMediaDirectory, "jpg");
    printDemoLine("saveFile", {{"result", path}, {"exists", std::filesystem::exists(path)}});
    if (!options.keepFiles) QuorvaneApiManager::deleteSandboxFile(path);

    QuorvaneApiManager::copyMessage("hello from quorvane", "复制成功", screen);
    auto huds = screen->huds();
    Value hud = huds.empty() ? Value(nullptr) : Value{{"text", huds.back()->detailsText()}, {"mode", huds.back()->mode()}};
    printDemoLine("copyMessage", {{"pasteboard", device.pasteboard->string().value_or("")}, {"hud", hud}});

    QuorvaneApiManager::jumpToSetting(screen);
    if (auto alert = screen->lastAlert()) {
        Value shown = alertValue(*alert);
        alert->tap("前往");
        Value opened = Value::array();
        for (const auto& url : device.urlOpener->opened()) opened.push_back(url.url);
        printDemoLine("jumpToSetting", {{"alert", shown}, {"tapped", "前往"}, {"opened", opened}});
    }
}

int runDemo(const DemoOptions& options) {
    if (!options.tmpdir.empty()) foundation::setTemporaryDirectory(options.tmpdir);
    auto device = platform::headless::installHeadlessDevice();
    auto screen = platform::headless::HeadlessPresenter::create();
    auto finished = std::make_shared<std::atomic<bool>>(false);

    foundation::dispatch::main().async([&options, device, screen, finished] {
        runImmediateSteps(options, device, screen);
        float seconds = options.delaySeconds;
        QuorvaneApiManager::GCDDelay(seconds, [seconds, finished] {
            bool onMain = foundation::isMainThread();
            foundation::dispatch::main().async([seconds, onMain, finished] {
                // Printed as given, not as the nearest single-precision value.
                printDemoLine("GCDDelay", {{"seconds", std::round(seconds * 1e6) / 1e6}, {"ranOnMainThread", onMain}});
                *finished = true;
            });
        });
    });
    bool done = foundation::MainLoop::instance().runUntil([finished] { return finished->load(); },
                                                          std::chrono::seconds(30));
    if (!done) std::cerr << "demo: timed out waiting for the delayed block" << std::endl;
    return done ? 0 : 1;
}

}  // namespace

void printDemoLine(const std::string& op, const Value& fields) {
    Value line = Value::object();
    line["op"] = op;
    for (const auto& item : fields.items()) line[item.key()] = item.value();
    std::cout << line.dump() << std::endl;
}

Subcommand addDemoCommand(CLI::App& app) {
    auto options = std::make_shared<DemoOptions>();
    CLI::App* demo = app.add_subcommand("demo", "Run façade operations on the headless device, printing JSON lines");
    demo->add_option("--tmpdir", options->tmpdir, "Temporary directory for the media files");
    demo->add_flag("--keep-files", options->keepFiles, "Keep the media file the demo writes");
    demo->add_option("--delay", options->delaySeconds, "Seconds for the GCDDelay step")->check(CLI::Range(0.0, 10.0));
    auto location = addDemoLocationCommand(*demo);
    auto capture = addDemoCaptureCommands(*demo);
    return {demo, [options, location, capture] {
                if (location.command->parsed()) return location.run();
                for (const auto& command : capture)
                    if (command.command->parsed()) return command.run();
                return runDemo(*options);
            }};
}

}  // namespace quorvane::app
