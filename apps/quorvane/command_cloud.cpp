// `quorvane cloud`: the local cloud (object storage with STS, the video service, the enterprise API,
// the log service) for other clients, until Ctrl-C. Same options and output as `quorvane-cloud`.
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>

#include "cloud_cli.h"
#include "upload_commands.h"

namespace quorvane::app {
namespace {

volatile std::sig_atomic_t stopFlag = 0;
void onStop(int) { stopFlag = 1; }

int runCloud(const emulator::EmulatorOptions& options) {
    emulator::CloudEmulator cloud(options);
    if (!cloud.start()) return 1;  // start() said why on standard error
    stopFlag = 0;
    std::signal(SIGINT, onStop);
    std::signal(SIGTERM, onStop);
    printCloudFacts(std::cout, cloud);
    while (!stopFlag) usleep(100 * 1000);  // polling avoids the signal-before-pause race
    cloud.stop();
    return 0;
}

}  // namespace

Subcommand addCloudCommand(CLI::App& app) {
    auto o = std::make_shared<emulator::EmulatorOptions>();
    CLI::App* cmd = app.add_subcommand("cloud", "Run the local cloud for other clients until Ctrl-C");
    addCloudOptions(*cmd, *o);
    return {cmd, [o] { return runCloud(*o); }};
}

}  // namespace quorvane::app
