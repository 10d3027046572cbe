// quorvane-cloud: runs the cloud emulator as a program until SIGINT or SIGTERM.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include <unistd.h>

#include "emulator/cloud_emulator.h"

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void onSignal(int) { stopRequested = 1; }

int usage(const char* program) {
    std::cerr << "usage: " << program
              << " [--host ADDR] [--port N] [--storage DIR] [--https] [--no-verify]"
                 " [--advertise HOST:PORT] [--bucket NAME] [--region ID]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    quorvane::emulator::EmulatorOptions options;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        const char* v = nullptr;
        if (arg == "--https") options.https = true;
        else if (arg == "--no-verify") options.verifySignatures = false;
        else if (arg == "--host" && (v = value())) options.host = v;
        else if (arg == "--port" && (v = value())) options.port = std::atoi(v);
        else if (arg == "--storage" && (v = value())) options.storageDir = v;
        else if (arg == "--advertise" && (v = value())) options.advertisedHost = v;
        else if (arg == "--bucket" && (v = value())) options.bucket = v;
        else if (arg == "--region" && (v = value())) options.region = v;
        else return usage(argv[0]);
    }
    quorvane::emulator::CloudEmulator cloud(options);
    if (!cloud.start()) return 1;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    // The credentials are the emulator's own throw-away root pair: printing them is how clients get them.
    std::cout << "endpoint " << cloud.endpoint() << "\n"
              << "port " << cloud.port() << "\n"
              << "bucket " << options.bucket << "\n"
              << "region " << options.region << "\n"
              << "access-key-id " << options.accessKeyId << "\n"
              << "access-key-secret " << options.accessKeySecret << "\n"
              << "enterprise-access-token " << options.enterpriseAccessToken << "\n";
    if (options.https) std::cout << "ca-file " << cloud.caFile() << "\n";
    std::cout << "ready" << std::endl;
    while (!stopRequested) usleep(100 * 1000);  // polling avoids the signal-before-pause race
    cloud.stop();
    return 0;
}
