// quorvane: the command-line host. Uploads and the local cloud run in this program, which links only
// the upload engine and the emulator; the façade demo runs in quorvane-demo, which links the device
// libraries (pictures, QR codes, capture), so an upload never loads them.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUORVANE_LEAK_CHECKED 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define QUORVANE_LEAK_CHECKED 1
#endif
#if QUORVANE_LEAK_CHECKED
#include <sanitizer/lsan_interface.h>
#endif

#include "cli_docs.h"
#include "foundation/host_paths.h"
#include "cloud_cli.h"
#include "platform/linux/linux_location.h"
#include "platform/linux/linux_platform.h"
#include "store_commands.h"
#include "upload_commands.h"
#include "upload_progress_view.h"

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

// What the demo program says of its own command line ("man-sections", "completion-case"): the demo's
// options are defined there, with the device libraries this program does not load.
std::string demoDocs(const char* kind) {
    std::string command = "'" + demoProgramPath() + "' --generate " + kind;
    std::string text;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
        if (::pclose(pipe) != 0) text.clear();
    }
    return text;
}

// A usage error as a JSON event too, when the command line asked for JSON.
void reportUsageError(int argc, char** argv, const std::string& message) {
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--json") == 0) {
            quorvane::app::UploadProgressView(quorvane::app::ViewMode::Json, std::cout).error("usage", message, 2);
            return;
        }
}

// Ends the process once a command is done, without the libraries' finalisers. A media upload loads
// FFmpeg, and with it over a hundred shared libraries whose finalisers run beside the idle threads of
// the process-wide queues and HTTP client; a run that had succeeded once crashed among them. Nothing
// of the command is left for them to do: it closed every file it wrote (the log file flushes each
// line) and waited for its last requests; the standard streams are flushed here. Sanitizer builds
// still look for leaks, which they would otherwise do in a finaliser.
[[noreturn]] void endProcess(int status) {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
#if QUORVANE_LEAK_CHECKED
    __lsan_do_leak_check();
#endif
    std::_Exit(status);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "demo") == 0) return execDemo(argc, argv);
    // The library reads no environment; the conventional variables are this program's to honour.
    quorvane::foundation::useHostPaths(quorvane::foundation::hostPathsFrom(std::getenv));
    CLI::App app{"QuorvaneApiSDK command-line host: resumable uploads to object storage and the video service"};
    app.name("quorvane");
    app.set_version_flag("--version", std::string("quorvane ") + QUORVANE_VERSION);
    std::string generate, generated;
    // Build-time only: the completion script and the man page come from these very definitions.
    app.add_option("--generate", generate)->check(CLI::IsMember({"bash-completion", "man", "cloud-man"}))->group("");
    app.add_option("--generate-to", generated)->group("");
    // Listed for the help text; its options are the demo program's.
    app.add_subcommand("demo", "Run façade operations on the headless device, printing JSON lines");
    std::vector<quorvane::app::Subcommand> subcommands{
        quorvane::app::addUploadCommand(app),
        quorvane::app::addCloudCommand(app),
        quorvane::app::addLsCommand(app),
        quorvane::app::addGetCommand(app),
        quorvane::app::addRmCommand(app),
        quorvane::app::addUploadsCommand(app),
        quorvane::app::addVerifyCommand(app),
        quorvane::app::addConfigCommand(app),
        quorvane::app::addPresignCommand(app),
    };
    try {
        app.parse(argc, argv);
        if (!generate.empty()) {
            std::string text;
            if (generate == "cloud-man") {
                // quorvane-cloud takes the very options of `quorvane cloud`.
                CLI::App cloud{"the local cloud (object storage with STS, the video service, the enterprise API, the "
                               "log service) until SIGINT or SIGTERM; the same as `quorvane cloud`"};
                quorvane::emulator::EmulatorOptions options;
                quorvane::app::addCloudOptions(cloud, options);
                cloud.set_version_flag("--version", "");
                text = quorvane::app::programManPage(cloud, "quorvane-cloud", QUORVANE_VERSION);
            } else if (generate == "man") {
                auto demo = demoDocs("man-sections");
                if (demo.empty()) throw CLI::ValidationError("--generate", "the demo program did not describe itself");
                text = quorvane::app::manPage(app, QUORVANE_VERSION, {{"demo", demo}});
            } else {
                auto demo = demoDocs("completion-case");
                if (demo.empty()) throw CLI::ValidationError("--generate", "the demo program did not describe itself");
                text = quorvane::app::bashCompletion(app, {{"demo", demo}});
            }
            if (generated.empty()) {
                std::cout << text;
                return 0;
            }
            std::ofstream out(generated);
            out << text;
            return out.good() ? 0 : 1;
        }
        if (app.get_subcommands().empty()) throw CLI::RequiredError("a command (upload, ls, get, rm, uploads, verify, config, presign, cloud or demo)");
    } catch (const CLI::ParseError& e) {
        int status = app.exit(e);  // --help and --version are 0; every usage error is 2
        if (status == 0) return 0;
        reportUsageError(argc, argv, e.what());
        return 2;
    }
    quorvane::app::setCommandArguments(std::vector<std::string>(argv + 1, argv + argc));
    // The engine reads this machine's network and kernel facts for its reports; the position, if any,
    // is this machine's configuration.
    quorvane::platform::linux_impl::installLinuxPlatform(quorvane::platform::linux_impl::configuredPosition(std::getenv));
    for (const auto& subcommand : subcommands)
        if (subcommand.command->parsed()) endProcess(subcommand.run());
    return 1;
}
