// quorvane-cloud: runs the cloud emulator as a program until SIGINT or SIGTERM. Its command line is
// that of `quorvane cloud` (apps/quorvane/cloud_cli.h, header-only).
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <string>

#include "apps/quorvane/cloud_cli.h"

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void onSignal(int) { stopRequested = 1; }

}  // namespace

int main(int argc, char** argv) {
    quorvane::emulator::EmulatorOptions options;
    CLI::App app{"quorvane-cloud: the local cloud (object storage with STS, the video service, the enterprise "
                 "API, the log service) until SIGINT or SIGTERM"};
    app.name("quorvane-cloud");
    app.set_version_flag("--version", std::string("quorvane-cloud ") + QUORVANE_VERSION);
    quorvane::app::addCloudOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    quorvane::emulator::CloudEmulator cloud(options);
    if (!cloud.start()) return 1;  // start() said why on standard error
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    quorvane::app::printCloudFacts(std::cout, cloud);
    while (!stopRequested) usleep(100 * 1000);  // polling avoids the signal-before-pause race
    cloud.stop();
    return 0;
}
