// quorvane: the command-line host. Uploads and the local cloud run in this program, which links only
// the upload engine and the emulator; the façade demo runs in quorvane-demo, which links the device
// libraries (pictures, QR codes, capture), so an upload never loads them.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "upload_commands.h"

namespace {

constexpr const char* kDemoProgram = "quorvane-demo";

// The demo program beside this one.
std::string demoProgramPath() {
    char self[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return kDemoProgram;
    std::string path(self, static_cast<std::size_t>(n));
    return path.substr(0, path.rfind('/') + 1) + kDemoProgram;
}

// Runs `quorvane demo ...` as the demo program with the same arguments; returns only on failure.
int execDemo(int argc, char** argv) {
    auto path = demoProgramPath();
    std::vector<char*> args(argv, argv + argc);
    args.push_back(nullptr);
    ::execv(path.c_str(), args.data());
    std::cerr << "quorvane: cannot run " << path << ": " << std::strerror(errno) << "\n";
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "demo") == 0) return execDemo(argc, argv);
    CLI::App app{"QuorvaneApiSDK command-line host"};
    app.require_subcommand(1);
    // Listed for the help text; its options are the demo program's.
    app.add_subcommand("demo", "Run façade operations on the headless device, printing JSON lines");
    std::vector<quorvane::app::Subcommand> subcommands{
        quorvane::app::addUploadCommand(app),
        quorvane::app::addCloudCommand(app),
    };
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;  // --help is 0; every usage error is 2
    }
    for (const auto& subcommand : subcommands)
        if (subcommand.command->parsed()) return subcommand.run();
    return 1;
}
