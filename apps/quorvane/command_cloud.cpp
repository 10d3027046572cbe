// `quorvane cloud`: the local cloud (object storage with STS, the video service, the enterprise API,
// the log service) for other clients, until Ctrl-C.
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <memory>

#include "emulator/cloud_emulator.h"
#include "upload_commands.h"

namespace quorvane::app {
namespace {

volatile std::sig_atomic_t stopFlag = 0;
void onStop(int) { stopFlag = 1; }

struct CloudOptions {
    int port = 0;
    std::string storage;
    bool https = false;
    bool noVerify = false;
};

int runCloud(const CloudOptions& options) {
    emulator::EmulatorOptions settings;
    settings.port = options.port;
    settings.storageDir = options.storage;
    settings.https = options.https;
    settings.verifySignatures = !options.noVerify;
    emulator::CloudEmulator cloud(settings);
    if (!cloud.start()) {
        std::cerr << "quorvane cloud: cannot start on port " << options.port
                  << (options.storage.empty() ? "" : " with storage " + options.storage) << "\n";
        return 1;
    }
    stopFlag = 0;
    std::signal(SIGINT, onStop);
    std::signal(SIGTERM, onStop);
    auto sts = cloud.issueSts();
    // These keys are the local cloud's own throw-away credentials: handing them out is its purpose.
    std::cout << "endpoint " << cloud.endpoint() << "\n"
              << "bucket " << settings.bucket << "\n"
              << "region " << settings.region << "\n"
              << "storage " << (options.storage.empty() ? "(in memory)" : options.storage) << "\n"
              << "root-access-key-id " << settings.accessKeyId << "\n"
              << "root-access-key-secret " << settings.accessKeySecret << "\n"
              << "sts-access-key-id " << sts.AccessKeyId << "\n"
              << "sts-access-key-secret " << sts.AccessKeySecret << "\n"
              << "sts-security-token " << sts.SecurityToken << "\n"
              << "sts-expiration " << sts.Expiration << "\n";
    if (options.https) std::cout << "ca-file " << cloud.caFile() << "\n";
    std::cout << "try: quorvane upload FILE --oss --endpoint " << cloud.endpoint() << " --bucket " << settings.bucket
              << " --key-id " << settings.accessKeyId << " --secret " << settings.accessKeySecret << "\n"
              << "try: quorvane upload VIDEO.mp4 --vod --vod-endpoint " << cloud.endpoint() << "/ --key-id "
              << settings.accessKeyId << " --secret " << settings.accessKeySecret << "\n"
              << "ready (Ctrl-C stops)" << std::endl;
    while (!stopFlag) usleep(100 * 1000);  // polling avoids the signal-before-pause race
    cloud.stop();
    return 0;
}

}  // namespace

Subcommand addCloudCommand(CLI::App& app) {
    auto o = std::make_shared<CloudOptions>();
    CLI::App* cmd = app.add_subcommand("cloud", "Run the local cloud for other clients until Ctrl-C");
    cmd->add_option("--port", o->port, "Port to listen on (0: a free one)")->check(CLI::Range(0, 65535));
    cmd->add_option("--storage", o->storage, "Keep objects in this directory (default: in memory)");
    cmd->add_flag("--https", o->https, "Serve TLS with a certificate made at start (see ca-file)");
    cmd->add_flag("--no-verify", o->noVerify, "Accept requests without checking their signatures");
    return {cmd, [o] { return runCloud(*o); }};
}

}  // namespace quorvane::app
